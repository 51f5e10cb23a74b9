#include "tools/virtual_i210/RealWaits.h"

#include "tools/virtual_i210/RealFunctions.h"

namespace virtual_i210 {

namespace {

void findWaits(RealWaits& waits) {
    findReal(waits.nanosleep, "nanosleep");
    findReal(waits.clockNanosleep, "clock_nanosleep");
    findReal(waits.poll, "poll");
    findReal(waits.ppoll, "ppoll");
    findReal(waits.select, "select");
    findReal(waits.pselect, "pselect");
    findReal(waits.epollWait, "epoll_wait");
    findReal(waits.epollPwait, "epoll_pwait");
    findReal(waits.sigtimedwait, "sigtimedwait");
    findReal(waits.sigwaitinfo, "sigwaitinfo");
    findReal(waits.sigwait, "sigwait");
    findReal(waits.pause, "pause");
    findReal(waits.timerfdCreate, "timerfd_create");
    findReal(waits.timerfdSettime, "timerfd_settime");
    findReal(waits.timerfdGettime, "timerfd_gettime");
    findReal(waits.gettimeofday, "gettimeofday");
    findReal(waits.settimeofday, "settimeofday");
    findReal(waits.adjtimex, "adjtimex");
    findReal(waits.adjtime, "adjtime");
    findReal(waits.time, "time");
}

void findThreads(RealWaits& waits) {
    findReal(waits.threadCreate, "pthread_create");
    findReal(waits.threadJoin, "pthread_join");
    findReal(waits.schedYield, "sched_yield");
    findReal(waits.threadCancel, "pthread_cancel");
    findReal(waits.threadExit, "pthread_exit");
    findReal(waits.mutexLock, "pthread_mutex_lock");
    findReal(waits.mutexTrylock, "pthread_mutex_trylock");
    findReal(waits.mutexTimedlock, "pthread_mutex_timedlock");
    findReal(waits.mutexClocklock, "pthread_mutex_clocklock");
    findReal(waits.mutexUnlock, "pthread_mutex_unlock");
    findReal(waits.readLock, "pthread_rwlock_rdlock");
    findReal(waits.readTrylock, "pthread_rwlock_tryrdlock");
    findReal(waits.readClocklock, "pthread_rwlock_clockrdlock");
    findReal(waits.writeLock, "pthread_rwlock_wrlock");
    findReal(waits.writeClocklock, "pthread_rwlock_clockwrlock");
    findReal(waits.writeTrylock, "pthread_rwlock_trywrlock");
    findReal(waits.readWriteUnlock, "pthread_rwlock_unlock");
}

void findConditions(RealWaits& waits) {
    findReal(waits.condWait, "pthread_cond_wait");
    findReal(waits.condTimedwait, "pthread_cond_timedwait");
    findReal(waits.condClockwait, "pthread_cond_clockwait");
    findReal(waits.condSignal, "pthread_cond_signal");
    findReal(waits.condBroadcast, "pthread_cond_broadcast");
    findReal(waits.semWait, "sem_wait");
    findReal(waits.semTrywait, "sem_trywait");
    findReal(waits.semTimedwait, "sem_timedwait");
    findReal(waits.semClockwait, "sem_clockwait");
    findReal(waits.semPost, "sem_post");
}

void findProcesses(RealWaits& waits) {
    findReal(waits.kill, "kill");
    findReal(waits.threadKill, "pthread_kill");
    findReal(waits.alarm, "alarm");
    findReal(waits.setitimer, "setitimer");
    findReal(waits.getitimer, "getitimer");
    findReal(waits.fork, "fork");
    findReal(waits.waitpid, "waitpid");
    findReal(waits.wait4, "wait4");
    findReal(waits.waitid, "waitid");
    findReal(waits.execve, "execve");
    findReal(waits.execvpe, "execvpe");
    findReal(waits.exitNow, "_exit");
}

RealWaits findWaits() {
    RealWaits waits{};
    findWaits(waits);
    findThreads(waits);
    findConditions(waits);
    findProcesses(waits);
    return waits;
}

}  // namespace

const RealWaits& realWaits() {
    static const RealWaits waits = findWaits();
    return waits;
}

}  // namespace virtual_i210
