#pragma once

namespace tsyn {

/** "i386" or "x86_64", as the build folders are called. */
constexpr const char* abiName() {
    return sizeof(void*) == 4 ? "i386" : "x86_64";
}

}  // namespace tsyn
