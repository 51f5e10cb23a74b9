#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tsyn {

/** What is wrong and what to do about it, in one line; nothing when all is well. */
using Problem = std::optional<std::string>;

/** One condition that an interface must meet before a daemon can run on it. */
struct Check {
    const char* name;
    Problem (*run)(const std::string& interfaceName);
};

/** The conditions in the order in which they build on each other. */
const std::vector<Check>& interfaceChecks();

/** The first condition that the interface does not meet. */
Problem firstProblem(const std::string& interfaceName);

}  // namespace tsyn
