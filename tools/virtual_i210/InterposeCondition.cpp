#include <cerrno>

#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/Locks.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"

/** Condition variables and semaphores. A simulated run keeps the waiters of a condition itself,
 *  since the real ones would block the thread whose turn it is. */

namespace {

using virtual_i210::conducting;
using virtual_i210::kNever;
using virtual_i210::kWokenByCancel;
using virtual_i210::kWokenByNotice;
using virtual_i210::rawNowNs;
using virtual_i210::realWaits;
using virtual_i210::WaitKind;

using virtual_i210::isInstant;

/** The clock that the attributes chose when the condition was made; the C library keeps it in a bit
 *  of its own and has no call that tells it. */
clockid_t clockOf(const pthread_cond_t& condition) {
    constexpr unsigned kMonotonicBit = 2;
    return (condition.__data.__wrefs & kMonotonicBit) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

int waitOnCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, std::uint64_t rawNs) {
    virtual_i210::chargeCall();
    pthread_testcancel();
    const int unlocked = virtual_i210::unlock(*mutex);
    if (unlocked != 0) {
        return unlocked;
    }
    const std::uint32_t woken = virtual_i210::waitFor(
        {WaitKind::kObject, reinterpret_cast<std::uintptr_t>(condition), rawNs}, false);
    virtual_i210::lockUntil(*mutex, kNever);
    // A thread that ends here owns the mutex, as its clean-up handlers expect, and has not taken
    // the notification of another one.
    if ((woken & kWokenByCancel) != 0 && (woken & kWokenByNotice) == 0) {
        pthread_testcancel();
    }
    return (woken & kWokenByNotice) == 0 && rawNowNs() >= rawNs ? ETIMEDOUT : 0;
}

int waitOnSemaphore(sem_t* semaphore, std::uint64_t rawNs) {
    while (realWaits().semTrywait(semaphore) != 0) {
        if (errno != EAGAIN) {
            return -1;
        }
        if (rawNowNs() >= rawNs) {
            return virtual_i210::failWith(ETIMEDOUT);
        }
        pthread_testcancel();
        const std::uint32_t woken = virtual_i210::waitFor(
            {WaitKind::kObject, reinterpret_cast<std::uintptr_t>(semaphore), rawNs}, false);
        // What was posted for this thread is taken before anything else ends the wait.
        if ((woken & (virtual_i210::kWokenBySignal | kWokenByNotice)) ==
                virtual_i210::kWokenBySignal &&
            !virtual_i210::signalRestartsCall()) {
            return virtual_i210::failWith(EINTR);
        }
    }
    return 0;
}

}  // namespace

VIRTUAL_I210_EXPORT int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return conducting() == nullptr ? realWaits().condWait(condition, mutex)
                                   : waitOnCondition(condition, mutex, kNever);
}

VIRTUAL_I210_EXPORT int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                               const timespec* end) {
    if (conducting() == nullptr) {
        return realWaits().condTimedwait(condition, mutex, end);
    }
    return isInstant(*end) ? waitOnCondition(condition, mutex,
                                             virtual_i210::rawInstantOf(clockOf(*condition), *end))
                           : EINVAL;
}

VIRTUAL_I210_EXPORT int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                               clockid_t clock, const timespec* end) {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().condClockwait(condition, mutex, clock, end)
               : waitOnCondition(condition, mutex, virtual_i210::rawInstantOf(clock, *end));
}

VIRTUAL_I210_EXPORT int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    return virtual_i210::notifyWaiters(condition, 1) > 0 ? 0 : realWaits().condSignal(condition);
}

VIRTUAL_I210_EXPORT int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    virtual_i210::notifyWaiters(condition);
    return realWaits().condBroadcast(condition);
}

VIRTUAL_I210_EXPORT int sem_wait(sem_t* semaphore) {
    return conducting() == nullptr ? realWaits().semWait(semaphore)
                                   : waitOnSemaphore(semaphore, kNever);
}

VIRTUAL_I210_EXPORT int sem_timedwait(sem_t* semaphore, const timespec* end) {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().semTimedwait(semaphore, end)
               : waitOnSemaphore(semaphore, virtual_i210::rawInstantOf(CLOCK_REALTIME, *end));
}

VIRTUAL_I210_EXPORT int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* end) {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().semClockwait(semaphore, clock, end)
               : waitOnSemaphore(semaphore, virtual_i210::rawInstantOf(clock, *end));
}

VIRTUAL_I210_EXPORT int sem_post(sem_t* semaphore) noexcept {
    const int result = realWaits().semPost(semaphore);
    virtual_i210::notifyWaiters(semaphore, 1);
    return result;
}
