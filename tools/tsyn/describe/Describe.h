#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tsyn {

/** Texts for the installation, made from the declarations of commands and options at build time. */

std::string bashCompletion(const CLI::App& program);
std::string zshCompletion(const CLI::App& program);

/** A page in mdoc. buildDate: "DD.MM.YYYY". */
std::string manPage(const CLI::App& program, const std::string& buildDate);

/** The commands that help lists. */
std::vector<const CLI::App*> commandsOf(const CLI::App& program);

/** The options that help lists, without arguments. */
std::vector<const CLI::Option*> optionsOf(const CLI::App& app);

/** Declares the option of the program that prints one of these texts and ends it. */
void addDescribeOption(CLI::App& program, const std::string& buildDate);

}  // namespace tsyn
