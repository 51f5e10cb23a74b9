#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace tools {

/** What printf writes, for formats whose result stays short: beyond 511 characters it is cut. */
inline std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

inline std::string formatted(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

}  // namespace tools
