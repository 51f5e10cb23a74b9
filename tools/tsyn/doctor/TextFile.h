#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace tsyn::doctor {

/** The whole file; empty when it cannot be read. */
inline std::string textOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

}  // namespace tsyn::doctor
