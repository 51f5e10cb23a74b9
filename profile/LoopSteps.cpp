#include "profile/LoopSteps.h"

#include <sys/socket.h>

#include "profile/Quality.h"

LoopSteps loopSteps{tellNothing, tellNothing, dropStrayStamps};

void tellNothing() {}

bool dropStrayStamps(int socket) {
    constexpr int kAtOnce = 64;
    int dropped = 0;
    for (; dropped < kAtOnce; ++dropped) {
        msghdr nothingWanted{};
        if (recvmsg(socket, &nothingWanted, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) {
            break;
        }
        quality::countStrayStamp();
    }
    return dropped != 0;
}
