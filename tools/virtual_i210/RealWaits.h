#pragma once

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/timex.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace virtual_i210 {

/** The C library's own functions behind the doors of the simulation. */
struct RealWaits {
    decltype(&::nanosleep) nanosleep;
    decltype(&::clock_nanosleep) clockNanosleep;
    decltype(&::poll) poll;
    decltype(&::ppoll) ppoll;
    decltype(&::select) select;
    decltype(&::pselect) pselect;
    decltype(&::epoll_wait) epollWait;
    decltype(&::epoll_pwait) epollPwait;
    decltype(&::pthread_create) threadCreate;
    decltype(&::pthread_join) threadJoin;
    decltype(&::sched_yield) schedYield;
    decltype(&::pthread_cancel) threadCancel;
    decltype(&::pthread_exit) threadExit;
    decltype(&::pthread_mutex_lock) mutexLock;
    decltype(&::pthread_mutex_trylock) mutexTrylock;
    decltype(&::pthread_mutex_timedlock) mutexTimedlock;
    decltype(&::pthread_mutex_clocklock) mutexClocklock;
    decltype(&::pthread_mutex_unlock) mutexUnlock;
    decltype(&::pthread_cond_wait) condWait;
    decltype(&::pthread_cond_timedwait) condTimedwait;
    decltype(&::pthread_cond_clockwait) condClockwait;
    decltype(&::pthread_cond_signal) condSignal;
    decltype(&::pthread_cond_broadcast) condBroadcast;
    decltype(&::pthread_rwlock_rdlock) readLock;
    decltype(&::pthread_rwlock_tryrdlock) readTrylock;
    decltype(&::pthread_rwlock_clockrdlock) readClocklock;
    decltype(&::pthread_rwlock_wrlock) writeLock;
    decltype(&::pthread_rwlock_clockwrlock) writeClocklock;
    decltype(&::pthread_rwlock_trywrlock) writeTrylock;
    decltype(&::pthread_rwlock_unlock) readWriteUnlock;
    decltype(&::sem_wait) semWait;
    decltype(&::sem_trywait) semTrywait;
    decltype(&::sem_timedwait) semTimedwait;
    decltype(&::sem_clockwait) semClockwait;
    decltype(&::sem_post) semPost;
    decltype(&::sigtimedwait) sigtimedwait;
    decltype(&::sigwaitinfo) sigwaitinfo;
    decltype(&::sigwait) sigwait;
    decltype(&::pause) pause;
    decltype(&::kill) kill;
    decltype(&::pthread_kill) threadKill;
    decltype(&::alarm) alarm;
    decltype(&::setitimer) setitimer;
    decltype(&::getitimer) getitimer;
    decltype(&::timerfd_create) timerfdCreate;
    decltype(&::timerfd_settime) timerfdSettime;
    decltype(&::timerfd_gettime) timerfdGettime;
    decltype(&::gettimeofday) gettimeofday;
    decltype(&::settimeofday) settimeofday;
    decltype(&::adjtimex) adjtimex;
    decltype(&::adjtime) adjtime;
    decltype(&::time) time;
    decltype(&::fork) fork;
    decltype(&::waitpid) waitpid;
    decltype(&::wait4) wait4;
    decltype(&::waitid) waitid;
    decltype(&::execve) execve;
    decltype(&::execvpe) execvpe;
    decltype(&::_exit) exitNow;
};

/** Found at first use: other libraries' constructors may call before ours runs. */
const RealWaits& realWaits();

}  // namespace virtual_i210
