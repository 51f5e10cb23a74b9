#pragma once

#include <fcntl.h>
#include <unistd.h>

/** Moves a descriptor off 0, which the library reads as "not open": a host may have closed its
 *  standard input. Returns the usable descriptor, or -1. */
inline int awayFromZero(int descriptor) {
    if (descriptor != 0) {
        return descriptor;
    }
    const int moved = fcntl(descriptor, F_DUPFD, 3);
    close(descriptor);
    return moved;
}

/** The process-wide raw packet socket: 0 before the set-up, -1 after a failed one. */
int rawSocket();
