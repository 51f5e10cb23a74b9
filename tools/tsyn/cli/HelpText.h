#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace tsyn {

/** Prints help with the allowed words and the default of each option, wrapped for a terminal. */
std::shared_ptr<CLI::Formatter> helpFormatter();

/** What an option does, with its default; as its help tells. */
std::string helpOf(const CLI::Option& option);

}  // namespace tsyn
