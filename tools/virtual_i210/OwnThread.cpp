#include "tools/virtual_i210/OwnThread.h"

#include <time.h>
#include <unistd.h>

#include <atomic>

namespace virtual_i210 {

namespace {

struct Own {
    std::uint32_t slot = kMaxThreads;
    bool ended = false;
    std::uint64_t workedNs = 0;
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
    if (conductor == nullptr || own.ended || processEnded.load(std::memory_order_relaxed)) {
        return nullptr;
    }
    if (own.slot == kMaxThreads) {
        own.slot = conductor->enter(getpid());
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
    const std::uint32_t woken = conductor->wait(own.slot, wait);
    chargeCall();
    if (cancellable && (woken & kWokenByCancel) != 0) {
        pthread_testcancel();
    }
    return woken;
}

void workUntil(std::uint64_t rawNs) {
    const std::uint64_t now = rawNowNs();
    if (now < rawNs) {
        charge(rawNs - now);
    }
}

unsigned notifyWaiters(const void* object, unsigned most) {
    Conductor* conductor = conducting();
    return conductor == nullptr
               ? 0
               : conductor->notify(getpid(), reinterpret_cast<std::uintptr_t>(object), most);
}

void tellDescriptorWaiters() {
    if (Conductor* conductor = conducting()) {
        conductor->descriptorsChanged();
    }
}

void beginAt(std::uint32_t slot) {
    own = Own{};
    own.slot = slot;
    processEnded.store(false);
    attachedConductor()->awaitTurn(slot);
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

Outside::Outside() : conductor_(conducting()) {
    if (conductor_ != nullptr) {
        conductor_->stepOutside(own.slot);
    }
}

Outside::~Outside() {
    if (conductor_ != nullptr) {
        conductor_->comeBack(own.slot);
    }
}

}  // namespace virtual_i210
