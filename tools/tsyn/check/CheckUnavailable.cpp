#include <cstdio>

#include "tools/tsyn/Abi.h"
#include "tools/tsyn/check/CheckCommand.h"

namespace tsyn {

/** Stands in where libpcap is not installed for the ABI of the build. */
int checkCommand(const CheckOptions&) {
    constexpr int kWrongUse = 2;
    std::fprintf(stderr,
                 "tsyn: this %s build has no libpcap to read captures with; use the tsyn of the "
                 "build for this machine's own ABI, such as build/x86_64/tsyn\n",
                 abiName());
    return kWrongUse;
}

}  // namespace tsyn
