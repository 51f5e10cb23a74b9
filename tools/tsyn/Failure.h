#pragma once

#include <cstdio>
#include <string>

namespace tsyn {

/** The one line on standard error that a command ends with, and the status that it ends with. */
inline int fail(const std::string& problem, int status = 1) {
    std::fprintf(stderr, "tsyn: %s\n", problem.c_str());
    return status;
}

}  // namespace tsyn
