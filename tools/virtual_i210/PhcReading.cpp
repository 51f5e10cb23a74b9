#include "tools/virtual_i210/PhcReading.h"

#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/simulated/Random.h"

namespace virtual_i210 {

std::int64_t readPhcNs(CardState& card) {
    const std::uint64_t startRawNs = [] {
        const ClockReading reading;
        return rawNowNs();
    }();
    const std::uint64_t number =
        card.counters[static_cast<std::size_t>(Counter::kClockReadings)].fetch_add(1);
    const std::uint64_t extra = seededRandom(card.seed, RandomStream::kReadDuration, number) %
                                (std::uint64_t{card.readJitterNs} + 1);
    const std::uint64_t durationNs = card.readNs + extra;
    // The fixed part of a read across the bus has its latch in the middle; what congestion adds
    // falls on either side of it.
    const std::uint64_t latchNs =
        card.readNs / 2 + seededRandom(card.seed, RandomStream::kReadLatch, number) % (extra + 1);
    const std::int64_t phcNs = card.shownPhcNs(startRawNs + latchNs);
    if (timeIsSimulated()) {
        workUntil(startRawNs + durationNs);
        return phcNs;
    }
    while (rawNowNs() < startRawNs + durationNs) {
    }
    return phcNs;
}

}  // namespace virtual_i210
