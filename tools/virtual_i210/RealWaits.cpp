#include "tools/virtual_i210/RealWaits.h"

#include <dlfcn.h>

namespace virtual_i210 {

namespace {

template <typename Function>
void find(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void findWaits(RealWaits& waits) {
    find(waits.nanosleep, "nanosleep");
    find(waits.clockNanosleep, "clock_nanosleep");
    find(waits.poll, "poll");
    find(waits.ppoll, "ppoll");
    find(waits.select, "select");
    find(waits.pselect, "pselect");
    find(waits.epollWait, "epoll_wait");
    find(waits.epollPwait, "epoll_pwait");
    find(waits.sigtimedwait, "sigtimedwait");
    find(waits.sigwaitinfo, "sigwaitinfo");
    find(waits.sigwait, "sigwait");
    find(waits.pause, "pause");
    find(waits.timerfdCreate, "timerfd_create");
    find(waits.timerfdSettime, "timerfd_settime");
    find(waits.timerfdGettime, "timerfd_gettime");
    find(waits.gettimeofday, "gettimeofday");
    find(waits.settimeofday, "settimeofday");
    find(waits.adjtimex, "adjtimex");
    find(waits.adjtime, "adjtime");
    find(waits.time, "time");
}

void findThreads(RealWaits& waits) {
    find(waits.threadCreate, "pthread_create");
    find(waits.threadJoin, "pthread_join");
    find(waits.schedYield, "sched_yield");
    find(waits.threadCancel, "pthread_cancel");
    find(waits.threadExit, "pthread_exit");
    find(waits.mutexLock, "pthread_mutex_lock");
    find(waits.mutexTrylock, "pthread_mutex_trylock");
    find(waits.mutexTimedlock, "pthread_mutex_timedlock");
    find(waits.mutexClocklock, "pthread_mutex_clocklock");
    find(waits.mutexUnlock, "pthread_mutex_unlock");
    find(waits.readLock, "pthread_rwlock_rdlock");
    find(waits.readTrylock, "pthread_rwlock_tryrdlock");
    find(waits.readClocklock, "pthread_rwlock_clockrdlock");
    find(waits.writeLock, "pthread_rwlock_wrlock");
    find(waits.writeClocklock, "pthread_rwlock_clockwrlock");
    find(waits.writeTrylock, "pthread_rwlock_trywrlock");
    find(waits.readWriteUnlock, "pthread_rwlock_unlock");
}

void findConditions(RealWaits& waits) {
    find(waits.condWait, "pthread_cond_wait");
    find(waits.condTimedwait, "pthread_cond_timedwait");
    find(waits.condClockwait, "pthread_cond_clockwait");
    find(waits.condSignal, "pthread_cond_signal");
    find(waits.condBroadcast, "pthread_cond_broadcast");
    find(waits.semWait, "sem_wait");
    find(waits.semTrywait, "sem_trywait");
    find(waits.semTimedwait, "sem_timedwait");
    find(waits.semClockwait, "sem_clockwait");
    find(waits.semPost, "sem_post");
}

void findProcesses(RealWaits& waits) {
    find(waits.kill, "kill");
    find(waits.threadKill, "pthread_kill");
    find(waits.alarm, "alarm");
    find(waits.setitimer, "setitimer");
    find(waits.getitimer, "getitimer");
    find(waits.fork, "fork");
    find(waits.waitpid, "waitpid");
    find(waits.wait4, "wait4");
    find(waits.waitid, "waitid");
    find(waits.execve, "execve");
    find(waits.execvpe, "execvpe");
    find(waits.exitNow, "_exit");
}

RealWaits findAll() {
    RealWaits waits{};
    findWaits(waits);
    findThreads(waits);
    findConditions(waits);
    findProcesses(waits);
    return waits;
}

}  // namespace

const RealWaits& realWaits() {
    static const RealWaits waits = findAll();
    return waits;
}

}  // namespace virtual_i210
