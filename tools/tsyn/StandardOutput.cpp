#include "tools/tsyn/StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tsyn {

int outputStatus(int status, int unwritten) {
    const bool failed = std::ferror(stdout) != 0;
    if (std::fflush(stdout) == 0 && !failed) {
        return status;
    }
    std::fprintf(stderr, "tsyn: standard output cannot be written (%s)\n", std::strerror(errno));
    return unwritten;
}

}  // namespace tsyn
