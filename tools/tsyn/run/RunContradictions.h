#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/run/RunOptions.h"

namespace tsyn {

/** Throws CLI::ParseError when something is missing or does not go together, wherever each of the
 *  values came from. */
void refuseContradictions(const CLI::App& command, const RunOptions& options);

/** Options that were told and change nothing. */
std::vector<std::string> warningsOf(const CLI::App& command, const RunOptions& options);

}  // namespace tsyn
