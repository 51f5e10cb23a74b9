#include "api/DaemonState.h"

#include "base/Undestroyed.h"

unsigned char runningState = 0;
unsigned int threadCount = 0;
unsigned char bSuppressPDelay = 0;
unsigned char override_portstate = 0;

pthread_mutex_t mutexInputThreader;
pthread_mutex_t mutexOutputThreader;
pthread_mutex_t th_mutex[14];
pthread_mutex_t pMutex;

/* The storage carries the exported name, see base/Undestroyed.h. */
Undestroyed<std::string> ethStackIdentStorage ZEB_STORAGE_OF("_Z13EthStackIdentB5cxx11");
Undestroyed<std::string> netifnameStorage ZEB_STORAGE_OF("_Z9netifnameB5cxx11");
Undestroyed<std::string> devnameStorage ZEB_STORAGE_OF("_Z7devnameB5cxx11");

ZeroInitialised<std::condition_variable> condvarStorage ZEB_STORAGE_OF("condvar");
ZeroInitialised<std::condition_variable> cvpdStorage ZEB_STORAGE_OF("cvpd");
ZeroInitialised<std::condition_variable> cvoutStorage ZEB_STORAGE_OF("cvout");
ZeroInitialised<std::condition_variable> cvStorage ZEB_STORAGE_OF("cv");
ZeroInitialised<std::condition_variable> cv1Storage ZEB_STORAGE_OF("cv1");
ZeroInitialised<std::condition_variable> cv2Storage ZEB_STORAGE_OF("cv2");
ZeroInitialised<std::condition_variable> cvAnnounceStorage ZEB_STORAGE_OF("cv_announce");

__attribute__((noinline)) void atomic_add(volatile unsigned* /*counter*/, unsigned /*amount*/) {}

__attribute__((noinline)) void atomic_sub(volatile unsigned* /*counter*/, unsigned /*amount*/) {}
