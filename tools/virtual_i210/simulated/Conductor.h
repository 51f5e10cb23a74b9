#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tools/virtual_i210/simulated/Machine.h"

namespace virtual_i210 {

constexpr std::size_t kMaxThreads = 4096;
constexpr std::size_t kEndedProcesses = 128;
constexpr std::uint64_t kNever = UINT64_MAX;
/** CLOCK_MONOTONIC_RAW when a run begins. */
constexpr std::uint64_t kFirstInstantNs = 1'000'000'000'000;

enum class ThreadState : std::uint32_t {
    kFree,
    kWaiting, /**< for its turn, be it a new thread, a sleeper or one that was woken */
    kRunning,
    kStopped,
    kOutside, /**< in a call that the run does not wait for, or never came back from its turn */
};

/** What may end a wait before its time. */
enum class WaitKind : std::uint32_t {
    kTurn, /**< only for its turn; nothing ends that before its time */
    kTime,
    kObject,      /**< a notification of this address */
    kDescriptors, /**< frames of a card, or of all, or anything that another thread writes */
    kSignal,      /**< a signal that the caller has blocked */
    kProcess,     /**< the end of a process */
};

/** Why a wait has ended; several may hold at once. */
enum Woken : std::uint32_t {
    kWokenByTime = 0,
    kWokenByNotice = 1,
    kWokenBySignal = 2, /**< a handler has run */
    kWokenByCancel = 4,
    kSignalShift = 8, /**< above these bits, the number of the signal when it is known */
};

constexpr std::uint64_t kEveryCard = UINT64_MAX;

struct Wait {
    WaitKind kind = WaitKind::kTime;
    /** kObject: address; kDescriptors: card + 1, 0 or kEveryCard; kProcess: its number. */
    std::uint64_t object = 0;
    std::uint64_t dueNs = kNever; /**< when it ends by itself */
    bool anyDescriptor = false;   /**< kDescriptors: not only those of cards */
};

/** One thread of any process of the run. All but `turn` changes under the conductor's lock. */
struct ThreadSlot {
    std::atomic<std::uint32_t> turn; /**< futex: `generation` when the thread may run */
    ThreadState state;
    std::int32_t pid;
    std::int32_t tid;
    WaitKind waitKind;
    std::uint32_t woken;
    std::uint64_t object;
    std::uint64_t waitNumber; /**< notifications serve the oldest waiter first */
    std::uint64_t handle;     /**< pthread_t */
    std::uint16_t anyDescriptor;
    std::uint16_t awaitsProcess;            /**< reserved for the first thread of `pid` */
    std::atomic<std::uint32_t> handlersMet; /**< signals that interrupted the wait for a turn */
    std::uint32_t generation;               /**< of those that had this place; never 0 */
    std::uint32_t padding;
};

static_assert(sizeof(ThreadSlot) == 64);

/** Ended, or ended and not yet waited for. */
bool isDead(pid_t pid);

/** Whether this thread waits for its turn: what it does then, a signal handler does. */
bool awaitsTurn();

/** Lets one thread of all processes run at a time. A turn ends when the thread waits, or when its
 *  time passes another one's wake-up; time then moves to the earliest wake-up. Lies in the shared
 *  state; every member function is called by the thread whose turn it is unless told otherwise. */
class Conductor {
public:
    /** The memory is zero. */
    void initialise(std::uint64_t seed, const SimulatedCosts& costs, std::uint64_t epochNs);
    bool active() const { return active_.load(std::memory_order_acquire) != 0; }

    std::uint64_t nowNs() const { return nowNs_.load(std::memory_order_relaxed); }
    std::int64_t realtimeOffsetNs() const { return realtimeOffsetNs_.load(); }
    void setRealtimeOffsetNs(std::int64_t ns) { realtimeOffsetNs_.store(ns); }
    const SimulatedCosts& costs() const { return costs_; }

    /** A number below `bound`, the next of the run's seeded ones. */
    std::uint64_t random(std::uint64_t bound);

    /** A place for a thread that starts now. Whose process is not yet known has pid 0. */
    std::uint32_t reserve(pid_t pid, bool firstOfProcess);
    void setProcess(std::uint32_t slot, pid_t pid);
    void setHandle(std::uint32_t slot, std::uint64_t handle);
    /** The place that is reserved for this process' first thread, or a new one; any thread. */
    std::uint32_t enter(pid_t pid);
    /** The calling thread takes a place that was reserved for it. */
    void begin(std::uint32_t slot);
    /** Returns when the thread that holds this place has its turn. */
    void awaitTurn(std::uint32_t slot);
    /** Gives the place and the turn back. */
    void leave(std::uint32_t slot);
    /** The same for all threads of a process; any thread. */
    void leaveProcess(pid_t pid);
    bool hasThreads(pid_t pid);
    /** Whether a process left the run lately because it ended: what is left of it is real time. */
    bool hasEnded(pid_t pid);

    /** The thread has worked for this long, and nobody outside its process could see it: it may go
     *  a little ahead of other processes. */
    void charge(std::uint32_t slot, std::uint64_t ns) {
        constexpr std::uint64_t kAheadNs = 1'000'000;
        const std::uint64_t now = nowNs() + ns;
        nowNs_.store(now, std::memory_order_relaxed);
        if (now > nextOwnDueNs_.load(std::memory_order_relaxed) || now - turnStartNs_ > kAheadNs) {
            settle(slot);
        }
    }

    /** What the thread does next may be seen: all who are due before it go first. */
    void settle(std::uint32_t slot) {
        if (nowNs() > nextDueNs_.load(std::memory_order_relaxed)) {
            sleepUntil(slot, nowNs());
        }
    }

    /** Lets others run until a reason to go on is there; returns the reasons. */
    std::uint32_t wait(std::uint32_t slot, const Wait& wait);

    /** Lets others run until then; the thread goes on at just that instant. */
    void sleepUntil(std::uint32_t slot, std::uint64_t ns);

    /** The turn is given away while the caller is in a call that the run does not wait for. */
    void stepOutside(std::uint32_t slot);
    /** Any thread that stepped outside, or whose turn was taken away. */
    void comeBack(std::uint32_t slot);
    bool isOutside(std::uint32_t slot) const { return slots_[slot].state == ThreadState::kOutside; }

    /** After a thread without a turn woke others: all may have waited for good. */
    void goOn();
    /** Wakes waiters of an address in one process, the oldest first; returns how many. */
    unsigned notify(pid_t pid, std::uint64_t object, unsigned most);
    /** Wakes who waits for frames of each card at the instant that one becomes visible there;
     * kNever where none does. */
    void framesVisible(const std::uint64_t* atNs, std::uint32_t cards);
    /** When the last frame of a card becomes visible. */
    std::uint64_t lastVisibleNs(std::uint32_t card) const { return visibleNs_[card]; }
    /** Wakes who waits for descriptors other than cards' sockets. */
    void descriptorsChanged();
    void cancelled(pid_t pid, std::uint64_t handle);
    /** Wakes who waits for a blocked signal, and the thread that a handler interrupts, or
     *  kMaxThreads. */
    void signalled(pid_t pid, std::uint32_t interrupted, int number);
    /** Threads of a stopped process do not get their turn. */
    void stop(pid_t pid);
    void resume(pid_t pid);
    /** The process image is about to be replaced by one that enters the run again. */
    void awaitNewImage(std::uint32_t slot);

    /** False when no thread of that handle is left. */
    bool hasThread(pid_t pid, std::uint64_t handle);
    std::uint32_t slotEnd() const { return slotEnd_; }
    const ThreadSlot& slot(std::uint32_t number) const { return slots_[number]; }

private:
    class Lock;

    std::uint32_t allocate(pid_t pid);
    void free(std::uint32_t slot);
    void adopt(std::uint32_t slot);
    void freeProcess(pid_t pid);
    void setPid(std::uint32_t slot, pid_t pid);
    void setDue(std::uint32_t slot, std::uint64_t dueNs);
    void setWaiting(std::uint32_t slot, std::uint64_t dueNs);
    void wakeAt(std::uint32_t slot, std::uint64_t dueNs, std::uint32_t reason);
    std::uint32_t passTurn();
    void hand(std::uint32_t slot);
    std::uint64_t latencyNs(std::uint64_t leastNs, std::uint64_t jitterNs);
    std::uint64_t wakeLatencyNs();
    std::uint64_t noticeLatencyNs();
    void watch();
    void noticeSignals(std::uint32_t slot, bool handlerRan);
    template <typename Instant>
    void wakeReaders(Instant instantFor);

    std::atomic<std::uint32_t> active_;
    std::atomic<std::uint32_t> lockOwner_; /**< pid */
    std::uint32_t slotEnd_;
    std::atomic<std::uint32_t> running_;      /**< slot + 1 */
    std::atomic<std::uint64_t> nowNs_;        /**< of the thread that runs */
    std::atomic<std::uint64_t> nextDueNs_;    /**< earliest of those that wait */
    std::atomic<std::uint64_t> nextOwnDueNs_; /**< the same in the process of the one that runs */
    std::uint64_t turnStartNs_;
    std::atomic<std::uint64_t> turns_;
    std::atomic<std::int64_t> realtimeOffsetNs_;
    std::uint64_t seed_;
    std::uint64_t draws_;
    std::uint64_t waits_;
    SimulatedCosts costs_;
    std::uint64_t anyDescriptorWaits_;
    std::int32_t ended_[kEndedProcesses]; /**< pids, the oldest replaced first */
    std::uint64_t endedCount_;
    std::uint64_t visibleNs_[kMaxCards];
    // Apart from the slots, for the search of the earliest.
    std::uint64_t dueNs_[kMaxThreads];
    std::int32_t pids_[kMaxThreads];
    ThreadSlot slots_[kMaxThreads];
};

static_assert(sizeof(SimulatedCosts) == 24);
static_assert(sizeof(Conductor) ==
              128 + 4 * kEndedProcesses + 8 * kMaxCards + kMaxThreads * (12 + sizeof(ThreadSlot)));
static_assert(alignof(Conductor) == 8);

}  // namespace virtual_i210
