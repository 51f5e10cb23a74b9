#include "tools/virtual_i210/OwnThread.h"

#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "tools/virtual_i210/Alarm.h"

namespace virtual_i210 {

namespace {

struct Own {
    std::uint32_t slot = kMaxThreads;
    bool ended = false;
    std::uint64_t workedNs = 0;
    int signal = 0; /**< that ended the last wait */
};

thread_local Own own;
std::atomic<bool> processEnded{false};
std::atomic<std::uint64_t> processWorkedNs{0};

/** No two calls take equally long. */
std::uint64_t around(Conductor& conductor, std::uint64_t ns) {
    return ns - ns / 4 + conductor.random(ns / 2 + 1);
}

}  // namespace

Conductor* conducting() {
    Conductor* conductor = attachedConductor();
    if (conductor == nullptr || own.ended || processEnded.load(std::memory_order_relaxed) ||
        awaitsTurn()) {
        return nullptr;
    }
    if (own.slot == kMaxThreads) {
        own.slot = conductor->enter(getpid());
        conductor->setHandle(own.slot, pthread_self());
    } else if (conductor->isOutside(own.slot)) {
        conductor->comeBack(own.slot);
    }
    return conductor;
}

bool simulatedClock(clockid_t clock, std::uint64_t& ns) {
    const Conductor& conductor = *attachedConductor();
    switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
    case CLOCK_REALTIME_ALARM:
    case CLOCK_TAI:
        ns = conductor.nowNs() + static_cast<std::uint64_t>(conductor.realtimeOffsetNs());
        return true;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_BOOTTIME:
    case CLOCK_BOOTTIME_ALARM:
        ns = conductor.nowNs();
        return true;
    case CLOCK_PROCESS_CPUTIME_ID:
        ns = processWorkedNs.load();
        return true;
    case CLOCK_THREAD_CPUTIME_ID:
        ns = own.workedNs;
        return true;
    default:
        return false;
    }
}

void charge(std::uint64_t ns) {
    if (Conductor* conductor = conducting()) {
        own.workedNs += ns;
        processWorkedNs.fetch_add(ns, std::memory_order_relaxed);
        conductor->charge(own.slot, ns);
    }
}

void chargeCall() {
    if (Conductor* conductor = conducting()) {
        charge(around(*conductor, conductor->costs().callNs));
        conductor->settle(own.slot);
    }
}

void ClockReading::begin() {
    if (Conductor* conductor = conducting()) {
        const std::uint64_t ns = around(*conductor, conductor->costs().clockNs);
        const std::uint64_t beforeNs = conductor->random(ns + 1);
        restNs_ = ns - beforeNs;
        charge(beforeNs);
    }
}

std::uint32_t waitFor(const Wait& wait, bool cancellable) {
    Conductor* conductor = conducting();
    if (conductor == nullptr) {
        return kWokenByTime;
    }
    if (cancellable) {
        pthread_testcancel();
    }
    Wait untilAlarm = wait;
    untilAlarm.dueNs = std::min(wait.dueNs, alarmNs());
    std::uint32_t woken = conductor->wait(own.slot, untilAlarm);
    chargeCall();
    if (ringIfDue()) {
        woken = kWokenBySignal | SIGALRM << kSignalShift;
    }
    own.signal = static_cast<int>(woken >> kSignalShift);
    if (cancellable && (woken & kWokenByCancel) != 0) {
        pthread_testcancel();
    }
    return woken;
}

bool signalRestartsCall() {
    struct sigaction action {};
    return own.signal != 0 && sigaction(own.signal, nullptr, &action) == 0 &&
           (action.sa_flags & SA_RESTART) != 0;
}

void workUntil(std::uint64_t rawNs) {
    const std::uint64_t now = rawNowNs();
    if (now < rawNs) {
        charge(rawNs - now);
    }
}

unsigned notifyWaiters(const void* object, unsigned most) {
    const bool inTurn = conducting() != nullptr;
    Conductor* conductor = attachedConductor();
    if (conductor == nullptr) {
        return 0;
    }
    const unsigned woken =
        conductor->notify(getpid(), reinterpret_cast<std::uintptr_t>(object), most);
    if (!inTurn) {
        conductor->goOn();
    }
    return woken;
}

void tellDescriptorWaiters() {
    const bool inTurn = conducting() != nullptr;
    if (Conductor* conductor = attachedConductor()) {
        conductor->descriptorsChanged();
        if (!inTurn) {
            conductor->goOn();
        }
    }
}

void beginAt(std::uint32_t slot) {
    own = Own{};
    own.slot = slot;
    attachedConductor()->setHandle(slot, pthread_self());
    attachedConductor()->begin(slot);
    attachedConductor()->awaitTurn(slot);
}

void beginProcessAt(std::uint32_t slot) {
    processWorkedNs.store(0);
    forgetAlarm();
    processEnded.store(false);
    beginAt(slot);
}

bool isFirstThread() {
    return syscall(SYS_gettid) == getpid();
}

void endThread() {
    if (Conductor* conductor = conducting()) {
        own.ended = true;
        conductor->leave(own.slot);
    }
}

void endProcess() {
    if (Conductor* conductor = conducting()) {
        processEnded.store(true);
        conductor->leaveProcess(getpid());
    }
}

void awaitNewImage() {
    if (Conductor* conductor = conducting()) {
        conductor->awaitNewImage(own.slot);
    }
}

void leaveForImage() {
    if (Conductor* conductor = conducting()) {
        conductor->leave(own.slot);
        own.slot = kMaxThreads;
    }
}

void keepImage() {
    own.slot = kMaxThreads;
    conducting();
}

Outside::Outside() : conductor_(conducting()) {
    if (conductor_ != nullptr) {
        conductor_->stepOutside(own.slot);
    }
}

Outside::~Outside() {
    // A signal handler may have come back before.
    if (conductor_ != nullptr && conductor_->isOutside(own.slot)) {
        conductor_->comeBack(own.slot);
    }
}

}  // namespace virtual_i210
