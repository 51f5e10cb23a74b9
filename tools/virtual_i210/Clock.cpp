#include "tools/virtual_i210/Clock.h"

#include <array>
#include <cstring>
#include <ctime>

#include "tools/virtual_i210/State.h"
#include "tools/virtual_i210/Timespec.h"
#include "tools/virtual_i210/simulated/Random.h"

namespace virtual_i210 {

namespace {

constexpr long double kTwoTo32 = 4294967296.0L;
constexpr long double kTwoTo64 = kTwoTo32 * kTwoTo32;
constexpr std::array<std::uint64_t, 3> kWanderPeriodsNs = {7'900'000'000u, 31'300'000'000u,
                                                           127'100'000'000u};

std::uint64_t magnitude(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0u - bits : bits;
}

/** a x b / 2^64 with 32 bits of fraction, by halves: a 32-bit build has no 128-bit integers. */
FineTime multiplyFraction(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t aLow = a & 0xFFFFFFFFu;
    const std::uint64_t aHigh = a >> 32;
    const std::uint64_t bLow = b & 0xFFFFFFFFu;
    const std::uint64_t bHigh = b >> 32;
    const std::uint64_t lowLow = aLow * bLow;
    const std::uint64_t middle = aHigh * bLow + (lowLow >> 32);
    const std::uint64_t middle2 = aLow * bHigh + (middle & 0xFFFFFFFFu);
    const std::uint64_t high = aHigh * bHigh + (middle >> 32) + (middle2 >> 32);
    return {static_cast<std::int64_t>(high), static_cast<std::uint32_t>(middle2)};
}

FineTime negate(FineTime time) {
    if (time.fraction == 0) {
        return {-time.ns, 0};
    }
    return {-time.ns - 1, 0u - time.fraction};
}

FineTime add(FineTime a, FineTime b) {
    const std::uint64_t fraction = static_cast<std::uint64_t>(a.fraction) + b.fraction;
    const auto ns =
        static_cast<std::uint64_t>(a.ns) + static_cast<std::uint64_t>(b.ns) + (fraction >> 32);
    return {static_cast<std::int64_t>(ns), static_cast<std::uint32_t>(fraction)};
}

FineTime fromFixed(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    return {value >> 32, static_cast<std::uint32_t>(bits)};
}

/** A wave of peak 1 and period 1 made of two parabolas; its steepest slope is 8. */
long double parabolicWave(std::uint64_t position, std::uint64_t period) {
    const std::uint64_t half = period / 2;
    const bool positive = position < half;
    const std::uint64_t inHalf = positive ? position : position - half;
    const long double x = static_cast<long double>(inHalf) / static_cast<long double>(half);
    const long double value = 4.0L * x * (1.0L - x);
    return positive ? value : -value;
}

}  // namespace

int (*readSystemClock)(clockid_t clock, timespec* time) = clock_gettime;

std::uint64_t rawNowNs() {
    if (const Conductor* conductor = attachedConductor()) {
        return conductor->nowNs();
    }
    timespec now{};
    readSystemClock(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<std::uint64_t>(toNs(now));
}

std::int64_t realtimeNowNs() {
    if (const Conductor* conductor = attachedConductor()) {
        return static_cast<std::int64_t>(conductor->nowNs()) + conductor->realtimeOffsetNs();
    }
    timespec now{};
    readSystemClock(CLOCK_REALTIME, &now);
    return toNs(now);
}

std::int64_t Wander::at(std::uint64_t rawNs) const {
    if (ppt == 0) {
        return 0;
    }
    const long double share = static_cast<long double>(ppt) / 1e12L / kWanderPeriodsNs.size();
    long double sumNs = 0.0L;
    for (std::size_t i = 0; i < kWanderPeriodsNs.size(); ++i) {
        const std::uint64_t period = kWanderPeriodsNs[i];
        const std::uint64_t position =
            (rawNs + seededRandom(seed, RandomStream::kWanderPhase, i) % period) % period;
        const long double peakNs = share * static_cast<long double>(period) / 8.0L;
        sumNs += peakNs * parabolicWave(position, period);
    }
    const long double fixed = sumNs * kTwoTo32;
    return static_cast<std::int64_t>(fixed);
}

std::int64_t combineRates(std::int64_t ownRatePpt, std::int64_t adjustmentScaledPpm) {
    const long double own = static_cast<long double>(ownRatePpt) / 1e12L;
    const long double adjustment = static_cast<long double>(adjustmentScaledPpm) / 65536.0L / 1e6L;
    const long double combined = own + adjustment + own * adjustment;
    const long double scaled = combined * kTwoTo64;
    return static_cast<std::int64_t>(scaled);
}

FineTime evaluate(const ClockLine& line, const Wander& wander, std::uint64_t rawNs) {
    const auto elapsed = static_cast<std::int64_t>(rawNs - line.baseRawNs);
    FineTime gain = multiplyFraction(magnitude(elapsed), magnitude(line.rate));
    if ((elapsed < 0) != (line.rate < 0)) {
        gain = negate(gain);
    }
    const FineTime base{line.basePhcNs, static_cast<std::uint32_t>(line.baseFraction)};
    const FineTime moved = add(add(base, {elapsed, 0}), gain);
    return add(moved, fromFixed(wander.at(rawNs) - line.wanderAtBase));
}

ClockLine rebase(const ClockLine& line, const Wander& wander, std::uint64_t rawNs,
                 std::int64_t ownRatePpt, std::int64_t adjustmentScaledPpm) {
    const FineTime now = evaluate(line, wander, rawNs);
    ClockLine next;
    next.baseRawNs = rawNs;
    next.basePhcNs = now.ns;
    next.baseFraction = now.fraction;
    next.rate = combineRates(ownRatePpt, adjustmentScaledPpm);
    next.wanderAtBase = wander.at(rawNs);
    next.ownRatePpt = ownRatePpt;
    next.adjustmentScaledPpm = adjustmentScaledPpm;
    return next;
}

ClockLine startAt(std::int64_t phcNs, const ClockLine& rates, const Wander& wander,
                  std::uint64_t rawNs) {
    ClockLine next = rates;
    next.baseRawNs = rawNs;
    next.basePhcNs = phcNs;
    next.baseFraction = 0;
    next.rate = combineRates(rates.ownRatePpt, rates.adjustmentScaledPpm);
    next.wanderAtBase = wander.at(rawNs);
    return next;
}

void ClockBoard::initialise(const ClockLine& line) {
    std::uint64_t words[kClockLineWords];
    std::memcpy(words, &line, sizeof words);
    for (std::size_t i = 0; i < kClockHistory * kClockLineWords; ++i) {
        slots_[0][i].store(words[i % kClockLineWords], std::memory_order_relaxed);
    }
    nextClaim_.store(0, std::memory_order_relaxed);
    for (auto& claimed : claimedRawNs_) {
        claimed.store(0, std::memory_order_relaxed);
    }
    current_.store(0, std::memory_order_release);
}

ClockLine ClockBoard::readLine(std::uint64_t published, std::size_t age) const {
    const Slot& slot = slots_[published % kClockSlots];
    std::uint64_t words[kClockLineWords];
    for (std::size_t i = 0; i < kClockLineWords; ++i) {
        words[i] = slot[age * kClockLineWords + i].load(std::memory_order_relaxed);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    ClockLine line;
    std::memcpy(&line, words, sizeof words);
    return line;
}

ClockLine ClockBoard::current() const {
    for (;;) {
        const std::uint64_t seen = current_.load(std::memory_order_acquire);
        const ClockLine line = readLine(seen, 0);
        if (current_.load(std::memory_order_relaxed) == seen) {
            return line;
        }
    }
}

ClockLine ClockBoard::lineAt(std::uint64_t rawNs) const {
    for (;;) {
        const std::uint64_t seen = current_.load(std::memory_order_acquire);
        ClockLine line = readLine(seen, 0);
        for (std::size_t age = 1; age < kClockHistory && rawNs < line.baseRawNs; ++age) {
            line = readLine(seen, age);
        }
        if (current_.load(std::memory_order_relaxed) == seen) {
            return line;
        }
    }
}

/** A writer owns the slot it fills, since it may be held up while others publish many times. The
 *  claim of a process that died in between lapses. */
std::size_t ClockBoard::claimSlot() {
    constexpr std::uint64_t kLapseNs = 10'000'000'000u;
    for (;;) {
        const std::size_t slot = nextClaim_.fetch_add(1) % kClockSlots;
        const std::uint64_t now = rawNowNs();
        std::uint64_t claimed = claimedRawNs_[slot].load();
        if ((claimed == 0 || now > claimed + kLapseNs) &&
            claimedRawNs_[slot].compare_exchange_strong(claimed, now)) {
            return slot;
        }
    }
}

void ClockBoard::fillSlot(std::size_t slot, std::uint64_t seen, const ClockLine& line) {
    std::uint64_t words[kClockLineWords];
    std::memcpy(words, &line, sizeof words);
    const Slot& older = slots_[seen % kClockSlots];
    std::atomic_thread_fence(std::memory_order_release);
    for (std::size_t i = 0; i < kClockHistory * kClockLineWords; ++i) {
        const std::uint64_t word = i < kClockLineWords
                                       ? words[i]
                                       : older[i - kClockLineWords].load(std::memory_order_relaxed);
        slots_[slot][i].store(word, std::memory_order_relaxed);
    }
}

bool ClockBoard::tryPublish(std::uint64_t seen, const ClockLine& line) {
    const std::size_t slot = claimSlot();
    bool published = false;
    // The claimed slot may be the one in force; it cannot become so later while it is claimed.
    if (slot != seen % kClockSlots && current_.load() == seen) {
        fillSlot(slot, seen, line);
        const std::uint64_t next = (seen / kClockSlots + 1) * kClockSlots + slot;
        published = current_.compare_exchange_strong(seen, next);
    }
    claimedRawNs_[slot].store(0);
    return published;
}

}  // namespace virtual_i210
