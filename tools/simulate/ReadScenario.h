#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/simulate/Scenario.h"

namespace simulate {

/** A file with mistakes: what() has one line "FILE:LINE: ..." for each. */
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Reads and checks a file. Throws ScenarioError. */
Scenario readScenario(const std::string& file);

/** The same of a text, which messages call `file`. */
Scenario parseScenario(const std::string& text, const std::string& file);

}  // namespace simulate
