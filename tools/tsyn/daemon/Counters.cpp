#include "tools/tsyn/daemon/Counters.h"

#include <algorithm>

namespace tsyn {
namespace {

/** Far from the end of their range, less than before means a new beginning. */
bool fell(unsigned int before, unsigned int after) {
    constexpr unsigned int kNearTheEnd = 1U << 31;
    return after < before && before < kNearTheEnd;
}

}  // namespace

std::vector<Counter> recordCountersOf(const Look& look) {
    const gPtpTimeDataStruct& record = look.record;
    return {{"sync_accepted", "accepted", record.acceptedSync},
            {"sync_rejected", "rejected", record.rejectedSync},
            {"pdelay_incomplete", "incomplete", record.incompletePdelay}};
}

std::vector<Counter> countersOf(const Look& look) {
    std::vector<Counter> counters = recordCountersOf(look);
    if (look.quality) {
        const gPtpTimeQuality& quality = *look.quality;
        counters.push_back({"ignored_frames", "ignored", quality.ignoredFrames});
        counters.push_back({"unstamped_frames", "unstamped", quality.unstampedFrames});
        counters.push_back({"stray_stamps", "stray", quality.strayStamps});
        counters.push_back({"unused_exchanges", "unused", quality.unusedExchanges});
        counters.push_back({"refused_samples", "refused", quality.refusedSamples});
        counters.push_back({"steps", "steps", quality.stepCount});
    }
    return counters;
}

bool beganAnew(const Look& before, const Look& after) {
    const bool isOtherOwner =
        before.quality && after.quality && before.quality->ownerPid != after.quality->ownerPid;
    return before.segment != after.segment || isOtherOwner || (before.quality && !after.quality) ||
           fell(before.record.acceptedSync, after.record.acceptedSync) ||
           fell(before.record.rejectedSync, after.record.rejectedSync) ||
           (before.record.localTime != 0 && after.record.localTime == 0);
}

std::vector<double> countsPerSecond(const Look& before, const Look& after) {
    const std::vector<Counter> first = countersOf(before);
    const std::vector<Counter> second = countersOf(after);
    std::vector<double> rates(second.size(), 0.0);
    const double seconds = after.monotonicS - before.monotonicS;
    if (seconds <= 0.0 || beganAnew(before, after)) {
        return rates;
    }
    for (std::size_t i = 0; i < std::min(first.size(), second.size()); ++i) {
        const unsigned int grown = second[i].value - first[i].value;
        const bool hasWrapped = second[i].value < first[i].value;
        rates[i] = hasWrapped ? 0.0 : grown / seconds;
    }
    return rates;
}

}  // namespace tsyn
