#pragma once

#include <string>

#include "tools/simulate/ReadScenario.h"

/** A master on line 4, a slave on line 8 and a cable on line 14 that joins them; 60 s. */
extern const char* const kPairText;

/** The pair with further lines behind it, the first of which is line 17. */
std::string pairWith(const std::string& lines);

/** The same, read; its file is called pair.toml. */
simulate::Scenario readPairWith(const std::string& lines);

/** What is said of a text that cannot be read; empty when it can. */
std::string mistakesIn(const std::string& text);
