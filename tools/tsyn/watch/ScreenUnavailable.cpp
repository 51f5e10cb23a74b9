#include "tools/tsyn/Abi.h"
#include "tools/tsyn/watch/Screen.h"

namespace tsyn {

/** Stands in where ncurses is not installed for the ABI of the build. */
std::unique_ptr<Screen> Screen::open(std::string& problem) {
    problem = std::string("this ") + abiName() +
              " build has no ncurses for a full screen; the tsyn of the build for this machine's "
              "own ABI, such as build/x86_64/tsyn, has";
    return nullptr;
}

}  // namespace tsyn
