#pragma once

#include <cstdio>
#include <string>

namespace tsyn::doctor {

inline std::string decimal(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

}  // namespace tsyn::doctor
