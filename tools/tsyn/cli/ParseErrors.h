#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tsyn {

/** The line that a wrong command line gets: what is wrong, and where help is to be had. */
std::string parseErrorLine(const CLI::App* program, const CLI::Error& error);

}  // namespace tsyn
