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

/** Closes the socket and the clock, so that the next use sets them up anew: an interface that was
 *  deleted leaves both behind dead. A host's thread that is about to use the clock meanwhile finds
 * none. */
void closeCard();
