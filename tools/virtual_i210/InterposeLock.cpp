#include <atomic>
#include <cerrno>

#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/Locks.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"

/** Mutexes and read-write locks. The locks themselves are the C library's own; only waiting for one
 *  that is held lets other threads run. */

namespace virtual_i210 {

namespace {

/** In this process; so that an unlock that concerns nobody costs nothing. */
std::atomic<unsigned> lockWaiters{0};

template <typename Try>
int waitForLock(const void* lock, std::uint64_t rawNs, Try tryLock) {
    int result = tryLock();
    while (result == EBUSY) {
        if (rawNowNs() >= rawNs) {
            return ETIMEDOUT;
        }
        lockWaiters.fetch_add(1);
        waitFor({WaitKind::kObject, reinterpret_cast<std::uintptr_t>(lock), rawNs}, false);
        lockWaiters.fetch_sub(1);
        result = tryLock();
    }
    return result;
}

int readLockUntil(pthread_rwlock_t* lock, std::uint64_t rawNs) {
    return waitForLock(lock, rawNs, [=] { return realWaits().readTrylock(lock); });
}

int writeLockUntil(pthread_rwlock_t* lock, std::uint64_t rawNs) {
    return waitForLock(lock, rawNs, [=] { return realWaits().writeTrylock(lock); });
}

void tellLockWaiters(const void* lock) {
    if (lockWaiters.load(std::memory_order_relaxed) > 0) {
        notifyWaiters(lock);
    }
}

}  // namespace

int lockUntil(pthread_mutex_t& mutex, std::uint64_t rawNs) {
    return waitForLock(&mutex, rawNs, [&] {
        const int tried = realWaits().mutexTrylock(&mutex);
        if (tried != EBUSY) {
            return tried;
        }
        // Trying does not tell an owner that it locks its own mutex; giving up at once does.
        constexpr timespec kLongAgo = {0, 0};
        const int result = realWaits().mutexTimedlock(&mutex, &kLongAgo);
        return result == ETIMEDOUT ? EBUSY : result;
    });
}

int unlock(pthread_mutex_t& mutex) {
    const int result = realWaits().mutexUnlock(&mutex);
    tellLockWaiters(&mutex);
    return result;
}

}  // namespace virtual_i210

using virtual_i210::conducting;
using virtual_i210::isInstant;
using virtual_i210::kNever;
using virtual_i210::realWaits;

VIRTUAL_I210_EXPORT int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    return conducting() == nullptr ? realWaits().mutexLock(mutex)
                                   : virtual_i210::lockUntil(*mutex, kNever);
}

VIRTUAL_I210_EXPORT int pthread_mutex_timedlock(pthread_mutex_t* mutex,
                                                const timespec* end) noexcept {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().mutexTimedlock(mutex, end)
               : virtual_i210::lockUntil(*mutex, virtual_i210::rawInstantOf(CLOCK_REALTIME, *end));
}

VIRTUAL_I210_EXPORT int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                                const timespec* end) noexcept {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().mutexClocklock(mutex, clock, end)
               : virtual_i210::lockUntil(*mutex, virtual_i210::rawInstantOf(clock, *end));
}

VIRTUAL_I210_EXPORT int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    return virtual_i210::unlock(*mutex);
}

VIRTUAL_I210_EXPORT int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
    return conducting() == nullptr ? realWaits().readLock(lock)
                                   : virtual_i210::readLockUntil(lock, kNever);
}

VIRTUAL_I210_EXPORT int pthread_rwlock_clockrdlock(pthread_rwlock_t* lock, clockid_t clock,
                                                   const timespec* end) noexcept {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().readClocklock(lock, clock, end)
               : virtual_i210::readLockUntil(lock, virtual_i210::rawInstantOf(clock, *end));
}

VIRTUAL_I210_EXPORT int pthread_rwlock_timedrdlock(pthread_rwlock_t* lock,
                                                   const timespec* end) noexcept {
    return pthread_rwlock_clockrdlock(lock, CLOCK_REALTIME, end);
}

VIRTUAL_I210_EXPORT int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
    return conducting() == nullptr ? realWaits().writeLock(lock)
                                   : virtual_i210::writeLockUntil(lock, kNever);
}

VIRTUAL_I210_EXPORT int pthread_rwlock_clockwrlock(pthread_rwlock_t* lock, clockid_t clock,
                                                   const timespec* end) noexcept {
    return !isInstant(*end) || conducting() == nullptr
               ? realWaits().writeClocklock(lock, clock, end)
               : virtual_i210::writeLockUntil(lock, virtual_i210::rawInstantOf(clock, *end));
}

VIRTUAL_I210_EXPORT int pthread_rwlock_timedwrlock(pthread_rwlock_t* lock,
                                                   const timespec* end) noexcept {
    return pthread_rwlock_clockwrlock(lock, CLOCK_REALTIME, end);
}

VIRTUAL_I210_EXPORT int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept {
    const int result = realWaits().readWriteUnlock(lock);
    virtual_i210::tellLockWaiters(lock);
    return result;
}
