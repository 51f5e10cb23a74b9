#include "ptp/clockitems.h"

#include "base/MutexLock.h"
#include "base/Undestroyed.h"

// Outlives the static destructors, since pumps may still use it meanwhile.
Undestroyed<std::map<PortKey, ClockItemMembersType>> clockItemStorage __asm__("clockItems");

namespace {

pthread_mutex_t lookupMutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

ClockItemMembersType& clockItemOf(const PortKey& key) {
    // Requests are sent and frames received by two threads: simultaneous insertions would break
    // the tree. References stay valid afterwards.
    const MutexLock lock(lookupMutex);
    return clockItems[key];
}
