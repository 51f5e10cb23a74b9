#pragma once

#include <time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace virtual_i210 {

/** How this process reads the system's clocks. The library that takes clock_gettime over puts the C
 *  library's own here, so that a reading of the card's does not come back to it. */
extern int (*readSystemClock)(clockid_t clock, timespec* time);

/** CLOCK_MONOTONIC_RAW in nanoseconds, of the simulated machine in a simulated run: the time that
 *  every card's oscillator is described in. */
std::uint64_t rawNowNs();

/** CLOCK_REALTIME in nanoseconds. */
std::int64_t realtimeNowNs();

/** A time with 2^-32 ns resolution; `fraction` is always added, also to a negative `ns`. */
struct FineTime {
    std::int64_t ns = 0;
    std::uint32_t fraction = 0;
};

/** How a clock runs from one adjustment to the next. */
struct ClockLine {
    std::uint64_t baseRawNs = 0;
    std::int64_t basePhcNs = 0;
    std::uint64_t baseFraction = 0;
    std::int64_t rate = 0; /**< in 2^-64, on top of 1 */
    std::int64_t wanderAtBase = 0;
    std::int64_t ownRatePpt = 0;
    std::int64_t adjustmentScaledPpm = 0; /**< in 2^-16 ppm */
};

/** As far as clock_adjtime takes this card. */
constexpr int kMaxAdjustmentPpb = 62'499'999;

constexpr std::size_t kClockLineWords = 7;
static_assert(sizeof(ClockLine) == kClockLineWords * 8);

/** Slow, bounded phase movement: a sum of waves whose frequency rises and falls linearly. Any
 *  process can evaluate it at any instant, and all get the same result. */
struct Wander {
    std::uint64_t seed = 0;
    std::int64_t ppt = 0;

    /** In 2^-32 ns. */
    std::int64_t at(std::uint64_t rawNs) const;
};

/** (1 + own error) x (1 + adjustment) - 1, in 2^-64. */
std::int64_t combineRates(std::int64_t ownRatePpt, std::int64_t adjustmentScaledPpm);

/** Elapsed raw time x (1 + rate) from the line's base, plus the wander since then. */
FineTime evaluate(const ClockLine& line, const Wander& wander, std::uint64_t rawNs);

/** The line that goes on where this one is at rawNs, with other rates. */
ClockLine rebase(const ClockLine& line, const Wander& wander, std::uint64_t rawNs,
                 std::int64_t ownRatePpt, std::int64_t adjustmentScaledPpm);

ClockLine startAt(std::int64_t phcNs, const ClockLine& rates, const Wander& wander,
                  std::uint64_t rawNs);

constexpr std::size_t kClockHistory = 8;
constexpr std::size_t kClockSlots = 16;

/** The current line and its predecessors, read and replaced without locks, so that a process that
 *  dies in an update leaves the last published state. */
class ClockBoard {
public:
    void initialise(const ClockLine& line);
    ClockLine current() const;
    /** The line that was in force at rawNs, or the oldest known. */
    ClockLine lineAt(std::uint64_t rawNs) const;

    /** Publishes change(line in force now), repeated when another process was faster. */
    template <typename Change>
    void update(Change change) {
        for (;;) {
            const std::uint64_t seen = current_.load(std::memory_order_acquire);
            if (tryPublish(seen, change(readLine(seen, 0)))) {
                return;
            }
        }
    }

private:
    using Slot = std::atomic<std::uint64_t>[kClockHistory * kClockLineWords];

    ClockLine readLine(std::uint64_t published, std::size_t age) const;
    bool tryPublish(std::uint64_t seen, const ClockLine& line);
    std::size_t claimSlot();
    void fillSlot(std::size_t slot, std::uint64_t seen, const ClockLine& line);

    std::atomic<std::uint64_t> current_; /**< generation x kClockSlots + slot */
    std::atomic<std::uint64_t> nextClaim_;
    std::atomic<std::uint64_t> claimedRawNs_[kClockSlots]; /**< 0: free */
    Slot slots_[kClockSlots];
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(sizeof(ClockBoard) == 16 + kClockSlots * (8 + kClockHistory * sizeof(ClockLine)));
static_assert(alignof(ClockBoard) == 8);

}  // namespace virtual_i210
