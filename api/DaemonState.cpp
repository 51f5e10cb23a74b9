#include "api/DaemonState.h"

#include "base/Undestroyed.h"

unsigned char runningState = 0;
char MasterOrSlave = '?';
unsigned int threadCount = 0;
unsigned char bSuppressPDelay = 0;
unsigned char override_portstate = 0;

pthread_mutex_t mutexInputThreader;
pthread_mutex_t mutexOutputThreader;
pthread_mutex_t th_mutex[14];
pthread_mutex_t pMutex;

/* The storage carries the exported name. A plain definition would be destroyed at exit, and
 * destroying a condition variable waits for its waiters, which never leave. */
#define ZEB_STRING_STORAGE(name, symbol) Undestroyed<std::string> name##Storage __asm__(symbol)
#define ZEB_CONDITION_STORAGE(name) \
    ZeroInitialised<std::condition_variable> name##Storage __asm__(#name)

ZEB_STRING_STORAGE(EthStackIdent, "_Z13EthStackIdentB5cxx11");
ZEB_STRING_STORAGE(netifname, "_Z9netifnameB5cxx11");
ZEB_STRING_STORAGE(devname, "_Z7devnameB5cxx11");
ZEB_STRING_STORAGE(shm_name, "_Z8shm_nameB5cxx11");

ZEB_CONDITION_STORAGE(condvar);
ZEB_CONDITION_STORAGE(cvpd);
ZEB_CONDITION_STORAGE(cvout);
ZEB_CONDITION_STORAGE(cv);
ZEB_CONDITION_STORAGE(cv1);
ZEB_CONDITION_STORAGE(cv2);
ZEB_CONDITION_STORAGE(cv_announce);

namespace {

unsigned char pumpStarted = 0;

/** At unload the condition variables are destroyed, unless a pump may still wait on one. */
__attribute__((destructor)) void destroyUnusedConditions() {
    if (anyPumpStarted()) {
        return;
    }
    for (std::condition_variable* condition :
         {&condvarStorage.value, &cvpdStorage.value, &cvoutStorage.value, &cvStorage.value,
          &cv1Storage.value, &cv2Storage.value, &cv_announceStorage.value}) {
        condition->~condition_variable();
    }
}

}  // namespace

void notePumpStarted() {
    __atomic_store_n(&pumpStarted, 1, __ATOMIC_RELAXED);
}

bool anyPumpStarted() {
    return __atomic_load_n(&pumpStarted, __ATOMIC_RELAXED) != 0;
}

__attribute__((noinline)) void atomic_add(volatile unsigned* /*counter*/, unsigned /*amount*/) {}

__attribute__((noinline)) void atomic_sub(volatile unsigned* /*counter*/, unsigned /*amount*/) {}
