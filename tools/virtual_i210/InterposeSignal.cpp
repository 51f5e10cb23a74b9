#include <poll.h>

#include <cerrno>

#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/simulated/Signals.h"

/** Waiting for signals, and sending them. */

namespace {

using virtual_i210::conducting;
using virtual_i210::kNever;
using virtual_i210::realWaits;
using virtual_i210::Wait;
using virtual_i210::WaitKind;

int waitForSignal(const sigset_t* set, siginfo_t* info, std::uint64_t endNs) {
    constexpr timespec kNoTime = {0, 0};
    virtual_i210::chargeCall();
    for (;;) {
        const int number = realWaits().sigtimedwait(set, info, &kNoTime);
        if (number >= 0 || errno != EAGAIN || virtual_i210::rawNowNs() >= endNs) {
            return number;
        }
        const std::uint32_t woken = virtual_i210::waitFor({WaitKind::kSignal, 0, endNs});
        if ((woken & virtual_i210::kWokenBySignal) != 0) {
            return virtual_i210::failWith(EINTR);
        }
        if (woken == virtual_i210::kWokenByTime && virtual_i210::rawNowNs() >= endNs) {
            return virtual_i210::failWith(EAGAIN);
        }
    }
}

}  // namespace

VIRTUAL_I210_EXPORT int sigtimedwait(const sigset_t* set, siginfo_t* info,
                                     const timespec* duration) {
    const bool wrong = duration != nullptr && !virtual_i210::isTime(*duration);
    return wrong || conducting() == nullptr
               ? realWaits().sigtimedwait(set, info, duration)
               : waitForSignal(set, info, virtual_i210::endOf(duration));
}

VIRTUAL_I210_EXPORT int sigwaitinfo(const sigset_t* set, siginfo_t* info) {
    return conducting() == nullptr ? realWaits().sigwaitinfo(set, info)
                                   : waitForSignal(set, info, kNever);
}

VIRTUAL_I210_EXPORT int sigwait(const sigset_t* set, int* number) {
    if (conducting() == nullptr) {
        return realWaits().sigwait(set, number);
    }
    const int taken = waitForSignal(set, nullptr, kNever);
    if (taken < 0) {
        return errno;
    }
    *number = taken;
    return 0;
}

VIRTUAL_I210_EXPORT int pause() {
    if (conducting() == nullptr) {
        return realWaits().pause();
    }
    while ((virtual_i210::waitFor(Wait{}) & virtual_i210::kWokenBySignal) == 0) {
    }
    return virtual_i210::failWith(EINTR);
}

VIRTUAL_I210_EXPORT int sigsuspend(const sigset_t* mask) {
    return ppoll(nullptr, 0, nullptr, mask);
}

VIRTUAL_I210_EXPORT int kill(pid_t pid, int number) noexcept {
    virtual_i210::Conductor* conductor = conducting();
    // Groups, and the caller itself, whose handler runs at once.
    if (conductor == nullptr || pid <= 0 || pid == getpid()) {
        return realWaits().kill(pid, number);
    }
    virtual_i210::chargeCall();
    return virtual_i210::signalProcess(*conductor, pid, number, realWaits().kill);
}

/** A handler of that very thread has run when the call returns. */
VIRTUAL_I210_EXPORT int pthread_kill(pthread_t thread, int number) noexcept {
    virtual_i210::Conductor* conductor = conducting();
    if (conductor == nullptr || number == 0 || pthread_equal(thread, pthread_self()) != 0) {
        return realWaits().threadKill(thread, number);
    }
    virtual_i210::chargeCall();
    return virtual_i210::signalThread(*conductor, getpid(), thread, number,
                                      [=] { return realWaits().threadKill(thread, number); });
}
