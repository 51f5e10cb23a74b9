#pragma once

#include <pthread.h>

#include <system_error>

/** pthread_mutex_lock that throws std::system_error instead of returning an error. */
inline void lockOrThrow(pthread_mutex_t& mutex) {
    const int error = pthread_mutex_lock(&mutex);
    if (error != 0) {
        throw std::system_error(error, std::generic_category());
    }
}

/** Holds a mutex that one thread owns for one scope. */
class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { lockOrThrow(mutex_); }
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

/** As MutexLock where nothing may throw: a static mutex that no thread takes twice. */
class QuietLock {
public:
    explicit QuietLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~QuietLock() { pthread_mutex_unlock(&mutex_); }
    QuietLock(const QuietLock&) = delete;
    QuietLock& operator=(const QuietLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};
