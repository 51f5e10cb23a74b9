#pragma once

#include <string>
#include <vector>

#include "tools/simulate/Scenario.h"

namespace simulate {

/** The cards of a run and its settings, as VIRTUAL_I210 has them. */
std::string cardText(const Scenario& scenario, std::uint64_t seed);

/** A program file and the virtual card for its word size. */
struct Program {
    std::string path;
    std::string preload;
};

/** Finds what a node runs. `buildFolder` holds tsyn and the card of x86_64. Throws
 *  std::runtime_error with what is missing and what to do. */
Program findProgram(const Node& node, const std::string& buildFolder);

/** Files that one start of a node writes; a later start has others. */
struct NodeFiles {
    std::string log;
    std::string samples;
    std::string lines; /**< standard output of a tsyn */
    std::string config;
};

NodeFiles filesOf(const Node& node, unsigned start);

/** Program and arguments. */
std::vector<std::string> commandOf(const Node& node, const Program& program, const NodeFiles& files,
                                   const std::string& buildFolder);

/** All that the program finds in its environment, "NAME=value". */
std::vector<std::string> environmentOf(const Node& node, const Program& program,
                                       const std::string& cards, const std::string& buildFolder);

/** A node's text with {name}, {if} and the others replaced. */
std::string filledIn(const std::string& text, const Node& node, const std::string& buildFolder);

}  // namespace simulate
