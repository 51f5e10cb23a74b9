#pragma once

#include <pthread.h>

#include <condition_variable>
#include <string>

/* Process-wide state of the daemon. Everything here is exported; hosts read it and may interpose
 * the two hooks. */

extern unsigned char runningState;  ///< nonzero while the pumps run
extern char MasterOrSlave;          ///< '?' before a role started, then '1' master or '2' slave
extern unsigned int threadCount;    ///< counted by the hooks, so 0 unless a host replaces them
extern unsigned char bSuppressPDelay;
extern unsigned char override_portstate;

extern std::string EthStackIdent;
extern std::string netifname;
extern std::string devname;
extern std::string shm_name;  ///< name of the shared time segment

extern std::condition_variable condvar;
extern std::condition_variable cvpd;
extern std::condition_variable cvout;
extern std::condition_variable cv;  ///< every output pump waits on it for its period
extern std::condition_variable cv1;
extern std::condition_variable cv2;
extern std::condition_variable cv_announce;

extern pthread_mutex_t mutexInputThreader;   ///< held around each receive and dispatch
extern pthread_mutex_t mutexOutputThreader;  ///< held around each transmission
extern pthread_mutex_t th_mutex[14];         ///< by message type, used with cv
extern pthread_mutex_t pMutex;

/** Hooks around threadCount, empty on purpose: a host that wants to count replaces them. */
void atomic_add(volatile unsigned* counter, unsigned amount);
void atomic_sub(volatile unsigned* counter, unsigned amount);

inline bool isRunning() {
    return __atomic_load_n(&runningState, __ATOMIC_RELAXED) != 0;
}

inline void setRunning(bool running) {
    __atomic_store_n(&runningState, static_cast<unsigned char>(running ? 1 : 0), __ATOMIC_RELAXED);
}

#pragma GCC visibility push(hidden)

/** Called by a pump when it starts: from then on no destructor of shared state runs at exit. */
void notePumpStarted();

/** True once any pump has run in this process. */
bool anyPumpStarted();

#pragma GCC visibility pop
