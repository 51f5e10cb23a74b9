#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/virtual_i210/SimulatedRun.h"

namespace {

class SimulatedLock : public SimulatedRun {
protected:
    /** A thread that holds the mutex for the next three seconds. */
    std::thread holder() {
        return std::thread([this] {
            EXPECT_EQ(0, pthread_mutex_lock(&mutex_));
            sleepNs(3 * kSecond);
            EXPECT_EQ(0, pthread_mutex_unlock(&mutex_));
        });
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

TEST_F(SimulatedLock, WaitsForASleepingOwner) {
    std::thread owner = holder();
    sleepNs(kSecond);
    EXPECT_EQ(2 * kSecond, durationOf([this] { EXPECT_EQ(0, pthread_mutex_lock(&mutex_)); }));
    owner.join();
    pthread_mutex_unlock(&mutex_);
}

TEST_F(SimulatedLock, IsNotAwaitedForLonger) {
    std::thread owner = holder();
    sleepNs(kSecond);
    const timespec soon = ahead(CLOCK_REALTIME, kSecond);
    EXPECT_EQ(kSecond,
              durationOf([&] { EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock(&mutex_, &soon)); }));
    const timespec never = {0, -1};
    EXPECT_EQ(EINVAL, pthread_mutex_timedlock(&mutex_, &never));
    const timespec later = ahead(CLOCK_MONOTONIC, 5 * kSecond);
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(0, pthread_mutex_clocklock(&mutex_, CLOCK_MONOTONIC, &later));
              }));
    owner.join();
    EXPECT_EQ(0, pthread_mutex_unlock(&mutex_));
}

TEST_F(SimulatedLock, TellsItsOwnerOfItself) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t checking;
    pthread_mutex_init(&checking, &attributes);
    EXPECT_EQ(0, pthread_mutex_lock(&checking));
    EXPECT_EQ(EDEADLK, pthread_mutex_lock(&checking));
    EXPECT_EQ(0, pthread_mutex_unlock(&checking));
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&checking));
    EXPECT_EQ(EPERM, pthread_cond_wait(&condition_, &checking));
}

TEST_F(SimulatedLock, LetsReadersInTogether) {
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    std::thread reader([&] {
        EXPECT_EQ(0, pthread_rwlock_rdlock(&lock));
        sleepNs(3 * kSecond);
        EXPECT_EQ(0, pthread_rwlock_unlock(&lock));
    });
    sleepNs(kSecond);
    EXPECT_EQ(0u, durationOf([&] { EXPECT_EQ(0, pthread_rwlock_rdlock(&lock)); }));
    EXPECT_EQ(0, pthread_rwlock_unlock(&lock));
    const timespec soon = ahead(CLOCK_REALTIME, kSecond);
    EXPECT_EQ(kSecond,
              durationOf([&] { EXPECT_EQ(ETIMEDOUT, pthread_rwlock_timedwrlock(&lock, &soon)); }));
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(0, pthread_rwlock_wrlock(&lock)); }));
    std::thread late([&] {
        const timespec end = ahead(CLOCK_MONOTONIC, kSecond);
        EXPECT_EQ(kSecond, durationOf([&] {
                      EXPECT_EQ(ETIMEDOUT,
                                pthread_rwlock_clockrdlock(&lock, CLOCK_MONOTONIC, &end));
                  }));
        EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(0, pthread_rwlock_rdlock(&lock)); }));
    });
    sleepNs(2 * kSecond);
    EXPECT_EQ(0, pthread_rwlock_unlock(&lock));
    late.join();
    reader.join();
}

/** Unlocks when its thread has left its function. */
struct LateUnlock {
    ~LateUnlock() { pthread_mutex_unlock(mutex); }
    pthread_mutex_t* mutex = nullptr;
};

thread_local LateUnlock lateUnlock;

TEST_F(SimulatedLock, IsLetGoByAThreadAtItsEnd) {
    std::thread owner([this] {
        pthread_mutex_lock(&mutex_);
        lateUnlock.mutex = &mutex_;
        sleepNs(2 * kSecond);
    });
    sleepNs(kSecond);
    EXPECT_EQ(kSecond, durationOf([this] { EXPECT_EQ(0, pthread_mutex_lock(&mutex_)); }));
    owner.join();
}

class SimulatedCondition : public SimulatedLock {};

TEST_F(SimulatedCondition, EndsAtItsTime) {
    pthread_mutex_lock(&mutex_);
    const timespec system = ahead(CLOCK_REALTIME, kSecond);
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition_, &mutex_, &system));
              }));
    EXPECT_EQ(0u, durationOf([&] {
                  EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition_, &mutex_, &system));
              }));
    const timespec since = ahead(CLOCK_MONOTONIC, kSecond);
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(ETIMEDOUT,
                            pthread_cond_clockwait(&condition_, &mutex_, CLOCK_MONOTONIC, &since));
              }));
    const timespec wrong = {0, 1'000'000'000};
    EXPECT_EQ(EINVAL, pthread_cond_timedwait(&condition_, &mutex_, &wrong));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutex_));
}

TEST_F(SimulatedCondition, GoesByTheClockOfItsAttributes) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_t condition;
    pthread_cond_init(&condition, &attributes);
    pthread_mutex_lock(&mutex_);
    const timespec end = ahead(CLOCK_MONOTONIC, kSecond);
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&condition, &mutex_, &end));
              }));
}

TEST_F(SimulatedCondition, WakesTheOldestWaiterThenAll) {
    std::string woken;
    const auto waiter = [&](char name) {
        return std::thread([&, name] {
            sleepNs(static_cast<std::uint64_t>(name));
            pthread_mutex_lock(&mutex_);
            EXPECT_EQ(0, pthread_cond_wait(&condition_, &mutex_));
            woken += name;
            pthread_mutex_unlock(&mutex_);
        });
    };
    std::thread threads[] = {waiter('a'), waiter('b'), waiter('c')};
    sleepNs(kSecond);
    EXPECT_EQ(0, pthread_cond_signal(&condition_));
    sleepNs(kSecond);
    EXPECT_EQ("a", woken);
    EXPECT_EQ(0, pthread_cond_broadcast(&condition_));
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(3u, woken.size());
}

TEST_F(SimulatedCondition, ServesTheStandardLibrary) {
    std::mutex mutex;
    std::condition_variable condition;
    bool ready = false;
    std::thread teller([&] {
        std::this_thread::sleep_for(std::chrono::seconds(5));
        const std::lock_guard<std::mutex> guard(mutex);
        ready = true;
        condition.notify_one();
    });
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_EQ(
        2 * kSecond, durationOf([&] {
            EXPECT_FALSE(condition.wait_for(lock, std::chrono::seconds(2), [&] { return ready; }));
        }));
    EXPECT_EQ(3 * kSecond, durationOf([&] { condition.wait(lock, [&] { return ready; }); }));
    lock.unlock();
    teller.join();
}

/** What a cancelled thread found in its clean-up. */
struct Cleanup {
    pthread_mutex_t* mutex;
    pthread_cond_t* condition;
    bool owned = false;
    bool returned = false;
};

void* waitToBeCancelled(void* argument) {
    auto& cleanup = *static_cast<Cleanup*>(argument);
    pthread_mutex_lock(cleanup.mutex);
    pthread_cleanup_push(
        [](void* data) {
            auto& found = *static_cast<Cleanup*>(data);
            found.owned = pthread_mutex_trylock(found.mutex) == EBUSY;
            pthread_mutex_unlock(found.mutex);
        },
        argument);
    pthread_cond_wait(cleanup.condition, cleanup.mutex);
    cleanup.returned = true;
    pthread_cleanup_pop(1);
    return nullptr;
}

TEST_F(SimulatedCondition, IsLeftByACancelledThreadWithTheMutex) {
    Cleanup cleanup{&mutex_, &condition_};
    pthread_t thread{};
    ASSERT_EQ(0, pthread_create(&thread, nullptr, waitToBeCancelled, &cleanup));
    sleepNs(kSecond);
    ASSERT_EQ(0, pthread_cancel(thread));
    void* result = nullptr;
    ASSERT_EQ(0, pthread_join(thread, &result));
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_TRUE(cleanup.owned);
    EXPECT_FALSE(cleanup.returned);
    EXPECT_EQ(0, pthread_mutex_trylock(&mutex_));
}

TEST_F(SimulatedCondition, IsNotWokenForACancelledThread) {
    Cleanup cleanup{&mutex_, &condition_};
    pthread_t thread{};
    ASSERT_EQ(0, pthread_create(&thread, nullptr, waitToBeCancelled, &cleanup));
    sleepNs(kSecond);
    bool served = false;
    std::thread other([&] {
        pthread_mutex_lock(&mutex_);
        pthread_cond_wait(&condition_, &mutex_);
        served = true;
        pthread_mutex_unlock(&mutex_);
    });
    sleepNs(kSecond);
    ASSERT_EQ(0, pthread_cancel(thread));
    EXPECT_EQ(0, pthread_cond_signal(&condition_));
    sleepNs(kSecond);
    EXPECT_TRUE(served);
    pthread_cond_broadcast(&condition_);
    other.join();
    pthread_join(thread, nullptr);
}

class SimulatedSemaphore : public SimulatedRun {
protected:
    SimulatedSemaphore() { sem_init(&semaphore_, 0, 0); }
    ~SimulatedSemaphore() override { sem_destroy(&semaphore_); }

    sem_t semaphore_{};
};

TEST_F(SimulatedSemaphore, IsAwaitedUntilItIsPosted) {
    std::thread poster([this] {
        sleepNs(2 * kSecond);
        sem_post(&semaphore_);
        sem_post(&semaphore_);
    });
    EXPECT_EQ(2 * kSecond, durationOf([this] { EXPECT_EQ(0, sem_wait(&semaphore_)); }));
    const timespec end = ahead(CLOCK_REALTIME, kSecond);
    EXPECT_EQ(0u, durationOf([&] { EXPECT_EQ(0, sem_timedwait(&semaphore_, &end)); }));
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(-1, sem_timedwait(&semaphore_, &end));
                  EXPECT_EQ(ETIMEDOUT, errno);
              }));
    const timespec since = ahead(CLOCK_MONOTONIC, kSecond);
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(-1, sem_clockwait(&semaphore_, CLOCK_MONOTONIC, &since));
              }));
    const timespec wrong = {0, -1};
    EXPECT_EQ(-1, sem_timedwait(&semaphore_, &wrong));
    EXPECT_EQ(EINVAL, errno);
    poster.join();
}

TEST_F(SimulatedSemaphore, IsInterruptedByAHandler) {
    const pid_t parent = getpid();
    catchSignal(SIGUSR1);
    const pid_t child = startProcess([=] {
        sleepNs(kSecond);
        return kill(parent, SIGUSR1);
    });
    EXPECT_EQ(-1, sem_wait(&semaphore_));
    EXPECT_EQ(EINTR, errno);
    EXPECT_EQ(0, resultOf(child));
}

sem_t* postedByHandler = nullptr;

TEST_F(SimulatedSemaphore, IsPostedByAHandler) {
    postedByHandler = &semaphore_;
    struct sigaction action {};
    action.sa_handler = [](int) {
        nowNs();
        sem_post(postedByHandler);
    };
    sigaction(SIGUSR1, &action, nullptr);
    const pid_t parent = getpid();
    const pid_t child = startProcess([=] {
        sleepNs(kSecond);
        return kill(parent, SIGUSR1);
    });
    std::thread waiter([this] { EXPECT_EQ(0, sem_wait(&semaphore_)); });
    EXPECT_EQ(kSecond, durationOf([&] { waiter.join(); }));
    EXPECT_EQ(0, resultOf(child));
}

class SimulatedThread : public SimulatedRun {};

TEST_F(SimulatedThread, IsJoinedWhenItHasEnded) {
    pthread_t thread{};
    const auto body = [](void* argument) -> void* {
        sleepNs(4 * kSecond);
        return argument;
    };
    int token = 0;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, body, &token));
    void* result = nullptr;
    EXPECT_EQ(4 * kSecond, durationOf([&] { EXPECT_EQ(0, pthread_join(thread, &result)); }));
    EXPECT_EQ(&token, result);
}

TEST_F(SimulatedThread, IsCancelledInItsSleep) {
    std::uint64_t endedAtNs = 0;
    std::thread sleeper([&] {
        struct AtEnd {
            ~AtEnd() { at = nowNs(); }
            std::uint64_t& at;
        };
        const AtEnd end{endedAtNs};
        sleep(1000);
    });
    sleepNs(kSecond);
    EXPECT_EQ(0, pthread_cancel(sleeper.native_handle()));
    const std::uint64_t cancelledAtNs = nowNs();
    sleeper.join();
    EXPECT_EQ(cancelledAtNs, endedAtNs);
}

class CostlyThread : public SimulatedRun {
protected:
    CostlyThread() : SimulatedRun("; tsm0") {}
};

TEST_F(CostlyThread, IsAwaitedBySpinning) {
    std::atomic<bool> done{false};
    std::thread worker([&] {
        sleepNs(kMs);
        done = true;
    });
    const std::uint64_t tookNs = durationOf([&] {
        while (!done) {
            std::this_thread::yield();
        }
    });
    EXPECT_GE(tookNs, kMs);
    EXPECT_LT(tookNs, 2 * kMs);
    worker.join();
}

}  // namespace
