#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tsyn {

/** A command's options as a TOML file: each by its long name, in a table named after the group that
 *  its help lists it under; those of no group stand above the tables. */

/** Takes the values of a file for all options that the command line left open. Throws
 *  CLI::ParseError with file, line and what is allowed. */
void readConfigFile(CLI::App& command, const std::string& path);

/** Such a file: options that were told with their values, the others commented out with their
 *  defaults. */
std::string configText(const CLI::App& command);

}  // namespace tsyn
