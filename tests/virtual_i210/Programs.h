#pragma once

#include <string>

/** Everything a command says, also about errors. */
std::string outputOf(const std::string& command);
