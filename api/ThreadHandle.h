#pragma once

#include <pthread.h>

enum class ThreadKind { kMain, kInput, kSender, kAnnounce };

/** One thread of the daemon. The object outlives the thread, so none owns it on a stack. */
class ThreadHandle {
public:
    struct Plan {
        ThreadKind kind;
        void* (*body)(void*);
        void* argument;
        const char* nameFormat;  ///< at most one %s, the interface; cut to 15 characters
    };

    /** False when the system gives no thread; there is nothing to join or cancel then. */
    bool create(const Plan& plan, const char* ifName, bool detached = false);

    /** Waits until the thread has ended, if there is one. */
    void join();

    /** Joins every thread that was created and not joined, none of which is detached. */
    static void joinAll();

    /** Cancels every thread of a kind that has not ended. */
    static void cancel(ThreadKind kind);

private:
    class EndMark;
    static void* run(void* self);

    Plan plan_{};
    pthread_t handle_{};  // no value of pthread_t means "none", hence the two marks
    bool created_ = false;
    bool alive_ = false;
    ThreadHandle* next_ = nullptr;
};
