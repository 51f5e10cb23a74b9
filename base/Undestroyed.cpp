#include "base/Undestroyed.h"

namespace {

unsigned char threadRan = 0;

}  // namespace

void noteDaemonThread() {
    __atomic_store_n(&threadRan, 1, __ATOMIC_RELAXED);
}

bool daemonThreadsRan() {
    return __atomic_load_n(&threadRan, __ATOMIC_RELAXED) != 0;
}
