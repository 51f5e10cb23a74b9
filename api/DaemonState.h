#pragma once

#include <pthread.h>

#include <condition_variable>
#include <string>

#include "base/Exports.h"

/* Process-wide state of the daemon. Everything here is exported; hosts read it and may interpose
 * the two hooks. */

ZEB_EXPORT extern unsigned char runningState;  ///< nonzero while the pumps run
ZEB_EXPORT extern unsigned int
    threadCount;  ///< counted by the hooks, so 0 unless a host replaces them
ZEB_EXPORT extern unsigned char bSuppressPDelay;
ZEB_EXPORT extern unsigned char override_portstate;

ZEB_EXPORT extern std::string EthStackIdent;
ZEB_EXPORT extern std::string netifname;
ZEB_EXPORT extern std::string devname;

ZEB_EXPORT extern std::condition_variable condvar;  ///< notified when the role has ended
ZEB_EXPORT extern std::condition_variable cvpd;
ZEB_EXPORT extern std::condition_variable cvout;  ///< in the record of the Sync or request sender
ZEB_EXPORT extern std::condition_variable cv;     ///< every output pump waits on it for its period
ZEB_EXPORT extern std::condition_variable cv1;
ZEB_EXPORT extern std::condition_variable cv2;
ZEB_EXPORT extern std::condition_variable cv_announce;  ///< in the record of the Announce sender

ZEB_EXPORT extern pthread_mutex_t mutexInputThreader;   ///< held around each receive and dispatch
ZEB_EXPORT extern pthread_mutex_t mutexOutputThreader;  ///< held around each transmission
ZEB_EXPORT extern pthread_mutex_t th_mutex[14];         ///< by message type, used with cv
ZEB_EXPORT extern pthread_mutex_t pMutex;

/** Hooks around threadCount, empty: a host that wants to count its threads replaces them. */
ZEB_ENTRY void atomic_add(volatile unsigned* counter, unsigned amount);
ZEB_ENTRY void atomic_sub(volatile unsigned* counter, unsigned amount);

inline bool isRunning() {
    return __atomic_load_n(&runningState, __ATOMIC_RELAXED) != 0;
}

inline void setRunning(bool running) {
    __atomic_store_n(&runningState, static_cast<unsigned char>(running ? 1 : 0), __ATOMIC_RELAXED);
}
