#include "base/MutexLock.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

/** A mutex that refuses a second lock of its owner. */
class CheckedMutex {
public:
    CheckedMutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~CheckedMutex() { pthread_mutex_destroy(&mutex); }

    pthread_mutex_t mutex;
};

TEST(MutexLock, HoldsForItsScope) {
    CheckedMutex checked;
    {
        const MutexLock lock(checked.mutex);
        EXPECT_EQ(EBUSY, pthread_mutex_trylock(&checked.mutex));
    }
    EXPECT_EQ(0, pthread_mutex_trylock(&checked.mutex));
    pthread_mutex_unlock(&checked.mutex);
}

TEST(MutexLock, ALockErrorIsThrownWithItsNumber) {
    CheckedMutex checked;
    const MutexLock lock(checked.mutex);
    try {
        lockOrThrow(checked.mutex);
        FAIL() << "locked twice";
    } catch (const std::system_error& error) {
        EXPECT_EQ(EDEADLK, error.code().value());
    }
}

}  // namespace
