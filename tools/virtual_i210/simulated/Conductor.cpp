
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tools/virtual_i210/simulated/ConductorLock.h"
#include "tools/virtual_i210/simulated/Random.h"

namespace virtual_i210 {

namespace {

/** Real time, after which a thread that waits looks whether the one whose turn it is still
 *  lives. */
constexpr long kWatchPeriodNs = 250'000'000;

/** Plain system calls: the ones of the C library are doors of the simulation, or end a cancelled
 *  thread where it must not end. */
long futexWait(std::atomic<std::uint32_t>& word, std::uint32_t value, const timespec* patience) {
    return syscall(SYS_futex, &word, FUTEX_WAIT, value, patience, nullptr, 0);
}

/** All, since a thread of an ending process may still wait where its place has been given away. */
void futexWake(std::atomic<std::uint32_t>& word) {
    syscall(SYS_futex, &word, FUTEX_WAKE, INT32_MAX, nullptr, nullptr, 0);
}

thread_local bool waitsForTurn = false;
thread_local std::uint32_t ownGeneration = 0;

}  // namespace

bool awaitsTurn() {
    return waitsForTurn;
}

void Conductor::initialise(std::uint64_t seed, const SimulatedCosts& costs, std::uint64_t epochNs) {
    seed_ = seed;
    costs_ = costs;
    nowNs_.store(kFirstInstantNs);
    turnStartNs_ = kFirstInstantNs;
    nextOwnDueNs_.store(kNever);
    nextDueNs_.store(kNever);
    realtimeOffsetNs_.store(static_cast<std::int64_t>(epochNs - kFirstInstantNs));
    active_.store(1, std::memory_order_release);
}

std::uint64_t Conductor::random(std::uint64_t bound) {
    return bound == 0 ? 0 : seededRandom(seed_, RandomStream::kSimulation, ++draws_) % bound;
}

/** How long after its reason a woken thread begins to run: mostly within the jitter, sometimes
 *  several times as long, seldom much longer. */
std::uint64_t Conductor::latencyNs(std::uint64_t leastNs, std::uint64_t jitterNs) {
    constexpr std::uint64_t kSometimes = 8;
    constexpr std::uint64_t kSeldom = 128;
    std::uint64_t ns = leastNs + random(jitterNs + 1);
    const std::uint64_t chance = random(kSeldom);
    if (chance == 0) {
        ns += random(40 * jitterNs + 1);
    } else if (chance % kSometimes == 0) {
        ns += random(4 * jitterNs + 1);
    }
    if (costs_.loadPercent > 0 && random(100) < costs_.loadPercent) {
        // Most delays of a busy machine are short; a few last some time slices.
        constexpr std::uint64_t kLongestNs = 30'000'000;
        const std::uint64_t share = random(1000);
        ns += kLongestNs * (share * share * share / 1000) / 1'000'000;
    }
    return ns;
}

/** After the end of a sleep. */
std::uint64_t Conductor::wakeLatencyNs() {
    return latencyNs(costs_.wakeNs, costs_.wakeJitterNs);
}

/** After a notification, for which no timer of the kernel has to expire first. */
std::uint64_t Conductor::noticeLatencyNs() {
    return latencyNs(costs_.notifyNs, costs_.wakeJitterNs / 2);
}

std::uint32_t Conductor::allocate(pid_t pid) {
    std::uint32_t number = 0;
    while (number < slotEnd_ && slots_[number].state != ThreadState::kFree) {
        ++number;
    }
    if (number == kMaxThreads) {
        std::fputs("virtual_i210: more than 4096 threads in one simulated run\n", stderr);
        std::abort();
    }
    slotEnd_ = std::max(slotEnd_, number + 1);
    ThreadSlot& slot = slots_[number];
    slot.turn.store(0);
    slot.generation = std::max(slot.generation + 1, 1U);
    setPid(number, pid);
    slot.tid = 0;
    slot.awaitsProcess = 0;
    slot.handle = 0;
    slot.woken = 0;
    slot.waitKind = WaitKind::kTurn;
    setWaiting(number, nowNs());
    return number;
}

void Conductor::setWaiting(std::uint32_t number, std::uint64_t dueNs) {
    slots_[number].state = ThreadState::kWaiting;
    slots_[number].waitNumber = ++waits_;
    setDue(number, dueNs);
}

void Conductor::setPid(std::uint32_t number, pid_t pid) {
    slots_[number].pid = pid;
    pids_[number] = pid;
}

void Conductor::setDue(std::uint32_t number, std::uint64_t dueNs) {
    dueNs_[number] = dueNs;
    nextDueNs_.store(std::min(nextDueNs_.load(), dueNs));
    const std::uint32_t running = running_.load(std::memory_order_relaxed);
    if (running != 0 && pids_[running - 1] == pids_[number]) {
        nextOwnDueNs_.store(std::min(nextOwnDueNs_.load(), dueNs));
    }
}

void Conductor::wakeAt(std::uint32_t number, std::uint64_t dueNs, std::uint32_t reason) {
    slots_[number].woken |= reason;
    if (dueNs < dueNs_[number]) {
        setDue(number, dueNs);
    }
}

void Conductor::free(std::uint32_t number) {
    if (slots_[number].waitKind == WaitKind::kDescriptors) {
        anyDescriptorWaits_ -= slots_[number].anyDescriptor;
    }
    slots_[number].state = ThreadState::kFree;
    setPid(number, 0);
    dueNs_[number] = kNever;
    if (running_.load() == number + 1) {
        running_.store(0);
    }
}

/** Chooses whose turn is next and moves time there; kMaxThreads when all wait for good. The seed
 *  orders those who are due at the same instant. */
std::uint32_t Conductor::passTurn() {
    std::uint32_t best = kMaxThreads;
    std::uint64_t bestDueNs = kNever;
    std::uint64_t secondDueNs = kNever;
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        const std::uint64_t dueNs = dueNs_[i];
        if (dueNs > secondDueNs || dueNs == kNever) {
            continue;
        }
        const bool earlier =
            dueNs < bestDueNs ||
            (dueNs == bestDueNs && mixBits(seed_ ^ dueNs ^ i) < mixBits(seed_ ^ dueNs ^ best));
        secondDueNs = earlier ? bestDueNs : dueNs;
        if (earlier) {
            best = i;
            bestDueNs = dueNs;
        }
    }
    nextDueNs_.store(secondDueNs, std::memory_order_relaxed);
    turns_.fetch_add(1, std::memory_order_relaxed);
    running_.store(best == kMaxThreads ? 0 : best + 1, std::memory_order_relaxed);
    if (best != kMaxThreads) {
        dueNs_[best] = kNever;
        slots_[best].state = ThreadState::kRunning;
        // The one that ran before may have been ahead.
        turnStartNs_ = std::max(turnStartNs_, bestDueNs);
        nowNs_.store(turnStartNs_, std::memory_order_relaxed);
        std::uint64_t nextOwnDueNs = kNever;
        for (std::uint32_t i = 0; i < slotEnd_; ++i) {
            nextOwnDueNs =
                pids_[i] == pids_[best] ? std::min(nextOwnDueNs, dueNs_[i]) : nextOwnDueNs;
        }
        nextOwnDueNs_.store(nextOwnDueNs, std::memory_order_relaxed);
    }
    return best;
}

/** Outside the lock. */
void Conductor::hand(std::uint32_t number) {
    if (number != kMaxThreads) {
        slots_[number].turn.store(slots_[number].generation, std::memory_order_release);
        futexWake(slots_[number].turn);
    }
}

void Conductor::begin(std::uint32_t number) {
    slots_[number].tid = static_cast<std::int32_t>(syscall(SYS_gettid));
    ownGeneration = slots_[number].generation;
}

void Conductor::awaitTurn(std::uint32_t number) {
    ThreadSlot& slot = slots_[number];
    const timespec patience = {0, kWatchPeriodNs};
    // One thread of each process is enough to notice that another one died, unless it is that one.
    const std::uint32_t running = running_.load();
    const bool watches = slot.tid == slot.pid ||
                         (running != 0 && slots_[running - 1].tid == slots_[running - 1].pid);
    const int savedErrno = errno;
    waitsForTurn = true;
    const std::uint32_t handlersBefore = slot.handlersMet.load();
    bool handlerRan = false;
    for (;;) {
        const std::uint32_t turn = slot.turn.load(std::memory_order_acquire);
        if (turn == ownGeneration) {
            break;
        }
        if (futexWait(slot.turn, turn, watches ? &patience : nullptr) == 0) {
            continue;
        }
        if (errno == EINTR) {
            slot.handlersMet.fetch_add(1);
        } else if (errno == ETIMEDOUT) {
            watch();
            // Signals of the run have been told of by the next look.
            noticeSignals(number, handlerRan);
            handlerRan = slot.handlersMet.load() != handlersBefore;
        }
    }
    waitsForTurn = false;
    slot.turn.store(0, std::memory_order_relaxed);
    errno = savedErrno;
}

void Conductor::sleepUntil(std::uint32_t number, std::uint64_t ns) {
    std::uint32_t next = 0;
    {
        const Lock lock(*this);
        setWaiting(number, std::max(ns, nowNs()));
        next = passTurn();
    }
    if (next != number) {
        hand(next);
        awaitTurn(number);
    }
}

std::uint32_t Conductor::wait(std::uint32_t number, const Wait& wait) {
    ThreadSlot& slot = slots_[number];
    std::uint32_t next = 0;
    {
        const Lock lock(*this);
        slot.waitKind = wait.kind;
        slot.object = wait.object;
        slot.anyDescriptor = wait.anyDescriptor ? 1 : 0;
        slot.woken = 0;
        anyDescriptorWaits_ += slot.anyDescriptor;
        const std::uint64_t dueNs = std::max(wait.dueNs, nowNs());
        setWaiting(number, wait.dueNs == kNever ? kNever : dueNs + wakeLatencyNs());
        next = passTurn();
    }
    if (next != number) {
        hand(next);
        awaitTurn(number);
    }
    anyDescriptorWaits_ -= slot.anyDescriptor;
    slot.waitKind = WaitKind::kTurn;
    return slot.woken;
}

std::uint32_t Conductor::reserve(pid_t pid, bool firstOfProcess) {
    const Lock lock(*this);
    const std::uint32_t number = allocate(pid);
    dueNs_[number] += noticeLatencyNs();
    slots_[number].awaitsProcess = firstOfProcess ? 1 : 0;
    return number;
}

void Conductor::setHandle(std::uint32_t slot, std::uint64_t handle) {
    slots_[slot].handle = handle;
}

void Conductor::leave(std::uint32_t number) {
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        const bool had = running_.load() == number + 1;
        free(number);
        if (had) {
            next = passTurn();
        }
    }
    hand(next);
}

bool Conductor::hasThread(pid_t pid, std::uint64_t handle) {
    const Lock lock(*this);
    return std::any_of(slots_, slots_ + slotEnd_, [=](const ThreadSlot& slot) {
        return slot.state != ThreadState::kFree && slot.pid == pid && slot.handle == handle;
    });
}

void Conductor::stepOutside(std::uint32_t number) {
    std::uint32_t next = 0;
    {
        const Lock lock(*this);
        slots_[number].state = ThreadState::kOutside;
        dueNs_[number] = kNever;
        next = passTurn();
    }
    hand(next);
}

void Conductor::comeBack(std::uint32_t number) {
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        setWaiting(number, nowNs());
        if (running_.load() == 0) {
            next = passTurn();
        }
    }
    hand(next);
    awaitTurn(number);
}

}  // namespace virtual_i210
