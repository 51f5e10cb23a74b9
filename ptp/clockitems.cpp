#include "ptp/clockitems.h"

#include "base/MutexLock.h"
#include "base/Undestroyed.h"

Undestroyed<std::map<PortKey, ClockItemMembersType>> clockItemStorage ZEB_STORAGE_OF("clockItems");

namespace {

pthread_mutex_t lookupMutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

ClockItemMembersType& clockItemOf(const PortKey& key) {
    // Requests are sent and frames received by two threads: simultaneous insertions would break
    // the tree. References stay valid afterwards.
    const MutexLock lock(lookupMutex);
    return clockItems[key];
}

void forgetClockItem(const PortKey& key) {
    const MutexLock lock(lookupMutex);
    clockItems.erase(key);
}
