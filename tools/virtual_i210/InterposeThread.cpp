#include <memory>

#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/State.h"

/** Threads: made, waited for, cancelled. */

namespace {

using virtual_i210::conducting;
using virtual_i210::Conductor;
using virtual_i210::realWaits;

struct Start {
    void* (*function)(void*);
    void* argument;
    std::uint32_t slot;
};

const void* objectOf(pthread_t thread) {
    return reinterpret_cast<const void*>(thread);  // NOLINT(performance-no-int-to-ptr)
}

/** Also unwound when the thread is cancelled or ends by pthread_exit. */
struct ThreadEnd {
    ~ThreadEnd() {
        virtual_i210::notifyWaiters(objectOf(pthread_self()));
        virtual_i210::endThread();
    }
};

void* runThread(void* argument) {
    const Start start = *std::unique_ptr<Start>(static_cast<Start*>(argument));
    virtual_i210::beginAt(start.slot);
    const ThreadEnd end;
    return start.function(start.argument);
}

}  // namespace

VIRTUAL_I210_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                       void* (*function)(void*), void* argument) noexcept {
    Conductor* conductor = conducting();
    if (conductor == nullptr) {
        return realWaits().threadCreate(thread, attributes, function, argument);
    }
    virtual_i210::chargeCall();
    const std::uint32_t slot = conductor->reserve(getpid(), false);
    auto start = std::make_unique<Start>(Start{function, argument, slot});
    const int result = realWaits().threadCreate(thread, attributes, runThread, start.get());
    if (result != 0) {
        conductor->leave(slot);
        return result;
    }
    static_cast<void>(start.release());  // it is the thread's now
    conductor->setHandle(slot, *thread);
    return 0;
}

VIRTUAL_I210_EXPORT int pthread_join(pthread_t thread, void** result) {
    if (Conductor* conductor = conducting()) {
        virtual_i210::chargeCall();
        pthread_testcancel();
        while (conductor->hasThread(getpid(), thread)) {
            virtual_i210::waitFor({virtual_i210::WaitKind::kObject,
                                   reinterpret_cast<std::uintptr_t>(objectOf(thread))});
        }
    }
    return realWaits().threadJoin(thread, result);
}

VIRTUAL_I210_EXPORT int pthread_cancel(pthread_t thread) {
    Conductor* conductor = conducting();
    const int result = realWaits().threadCancel(thread);
    if (conductor != nullptr && result == 0) {
        conductor->cancelled(getpid(), thread);
    }
    return result;
}

/** The first thread was not made by a call that sees its end. */
VIRTUAL_I210_EXPORT void pthread_exit(void* result) {
    if (virtual_i210::isFirstThread()) {
        virtual_i210::notifyWaiters(objectOf(pthread_self()));
        virtual_i210::endThread();
    }
    realWaits().threadExit(result);
    __builtin_unreachable();
}

/** Whoever yields in a loop waits for another one. */
VIRTUAL_I210_EXPORT int sched_yield() noexcept {
    virtual_i210::chargeCall();
    return realWaits().schedYield();
}
