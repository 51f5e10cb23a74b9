#include "api/ThreadHandle.h"

#include <cstddef>
#include <cstdio>

#include "base/MutexLock.h"

namespace {

constexpr std::size_t kNameSize = 16;

pthread_mutex_t listMutex = PTHREAD_MUTEX_INITIALIZER;
ThreadHandle* first = nullptr;  // every thread that was created and not joined

}  // namespace

/** Marks the thread as ended when its body is left, by return or by cancellation. */
class ThreadHandle::EndMark {
public:
    explicit EndMark(ThreadHandle& thread) : thread_(thread) {}
    ~EndMark() {
        const QuietLock lock(listMutex);
        thread_.alive_ = false;
    }
    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;

private:
    ThreadHandle& thread_;
};

void* ThreadHandle::run(void* self) {
    auto& thread = *static_cast<ThreadHandle*>(self);
    const EndMark mark(thread);
    return thread.plan_.body(thread.plan_.argument);
}

bool ThreadHandle::create(const Plan& plan, const char* ifName, bool detached) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (detached) {
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    }
    plan_ = plan;
    {
        // Held across the creation, so that the thread cannot end before it is listed.
        const QuietLock lock(listMutex);
        created_ = pthread_create(&handle_, &attributes, run, this) == 0;
        if (created_) {
            alive_ = true;
            next_ = first;
            first = this;
            char name[kNameSize];
            static_cast<void>(std::snprintf(name, sizeof name, plan.nameFormat, ifName));
            pthread_setname_np(handle_, name);
        }
    }
    pthread_attr_destroy(&attributes);
    return created_;
}

void ThreadHandle::join() {
    if (!created_) {
        return;
    }
    pthread_join(handle_, nullptr);
    const QuietLock lock(listMutex);
    created_ = false;
    ThreadHandle** link = &first;
    while (*link != this) {
        link = &(*link)->next_;
    }
    *link = next_;
}

void ThreadHandle::joinAll() {
    for (;;) {
        ThreadHandle* next = nullptr;
        {
            const QuietLock lock(listMutex);
            next = first;
        }
        if (next == nullptr) {
            return;
        }
        next->join();
    }
}

void ThreadHandle::cancel(ThreadKind kind) {
    const QuietLock lock(listMutex);
    for (ThreadHandle* thread = first; thread != nullptr; thread = thread->next_) {
        if (thread->plan_.kind == kind && thread->alive_) {
            pthread_cancel(thread->handle_);
        }
    }
}
