#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/Config.h"
#include "tools/virtual_i210/EventRing.h"
#include "tools/virtual_i210/Faults.h"
#include "tools/virtual_i210/simulated/Conductor.h"

namespace virtual_i210 {

enum class Counter : std::uint32_t {
    kPtpFramesSent,
    kEventFramesSent,
    kTxTimestamps,
    kRxTimestamps,
    kRxFallbacks,
    kFramesSwallowed,
    kClockReadings,
    kClockAdjustments,
};

constexpr std::size_t kCounters = 8;

/** Everything the processes that use one virtual card share. Parameters never change after
 *  creation; the rest is atomic. */
struct CardState {
    char ifName[16];
    std::int32_t phcIndex;
    std::uint32_t granularityNs;
    std::uint32_t cableNs;
    std::uint32_t jitterNs;
    std::uint32_t readNs;
    std::uint32_t readJitterNs;
    std::uint64_t seed;
    std::int64_t wanderPpt;
    std::int64_t ownRatePpt;
    std::int64_t offsetNs;
    std::uint64_t net; /**< cards of one number hear each other */
    std::atomic<std::uint32_t> txType;
    std::atomic<std::uint32_t> rxFilter;
    std::atomic<std::uint64_t> counters[kCounters];
    FaultBoard faults;
    ClockBoard clock;

    Wander wander() const { return {seed, wanderPpt}; }
    void count(Counter counter) {
        counters[static_cast<std::size_t>(counter)].fetch_add(1, std::memory_order_relaxed);
    }
    std::uint64_t counted(Counter counter) const {
        return counters[static_cast<std::size_t>(counter)].load(std::memory_order_relaxed);
    }

    /** Clock time at an instant, rounded down to a nanosecond. */
    std::int64_t phcNs(std::uint64_t rawNs) const;
    /** The same as the card shows it, rounded down to its granularity. */
    std::int64_t shownPhcNs(std::uint64_t rawNs) const;

    void setPhc(std::int64_t phcNs);
    void stepPhc(std::int64_t deltaNs);
    void adjust(std::int64_t scaledPpm);
    void setOwnRate(std::int64_t ratePpt);
};

static_assert(offsetof(CardState, phcIndex) == 16);
static_assert(offsetof(CardState, seed) == 40);
static_assert(offsetof(CardState, offsetNs) == 64);
static_assert(offsetof(CardState, txType) == 80);
static_assert(offsetof(CardState, counters) == 88);
static_assert(offsetof(CardState, faults) == 152);
static_assert(offsetof(CardState, clock) == 336);
static_assert(sizeof(CardState) == 336 + sizeof(ClockBoard));

struct SharedState {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t cardCount;
    std::uint64_t size;
    std::uint64_t configHash;
    CardState cards[kMaxCards];
    EventRing events;
    char capturePath[kMaxCapturePath];
    Conductor conductor;

    CardState* findCard(const char* ifName);
    CardState* findPhc(std::int32_t phcIndex);
    std::uint32_t indexOf(const CardState& card) const {
        return static_cast<std::uint32_t>(&card - cards);
    }
    /** The card at the other end of the cable: with exactly two cards, the other one. */
    const CardState* peerOf(const CardState& card) const;
};

static_assert(offsetof(SharedState, cards) == 32);
static_assert(offsetof(SharedState, events) == 32 + kMaxCards * sizeof(CardState));
static_assert(offsetof(SharedState, conductor) ==
              offsetof(SharedState, events) + sizeof(EventRing) + kMaxCapturePath);
static_assert(sizeof(SharedState) == offsetof(SharedState, conductor) + sizeof(Conductor));

/** Maps the state of these cards, creating it when this is the first process. Throws
 *  ConfigError. */
SharedState& mapState(const Config& config);

/** The state that this process attached to, or null. */
SharedState* attachedState();

/** Written by attach alone. */
extern std::atomic<Conductor*> runConductor;

/** The conductor of the run that this process is part of; null in real time, where nearly every
 * call asks. */
inline Conductor* attachedConductor() {
    return runConductor.load(std::memory_order_acquire);
}

}  // namespace virtual_i210
