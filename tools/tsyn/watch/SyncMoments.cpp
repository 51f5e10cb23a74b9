#include "tools/tsyn/watch/SyncMoments.h"

#include <algorithm>
#include <cmath>

#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonState.h"

namespace tsyn {
namespace {

/** Less than the shortest interval of a daemon. */
constexpr double kShortestS = 0.1;
constexpr double kLongestS = 1.0;
constexpr double kLeastStepS = 0.01;
/** After the moment of a Sync, in intervals: it may be published late by that, and the next one
 * come early by the rest. */
constexpr double kAfterSync = 0.4;
/** Of a Sync that was later still, before the next one. */
constexpr double kOnceMore = 0.9;

/** By which what was measured anew changes what is known. */
constexpr double kNewPart = 0.125;

unsigned short syncsBetween(const Look& before, const Look& look) {
    return static_cast<unsigned short>(look.record.sequenceId - before.record.sequenceId);
}

}  // namespace

void SyncMoments::learn(double syncS, long long syncNs, unsigned short count) {
    const double measuredS =
        std::clamp(1e-9 * static_cast<double>(syncNs - syncNs_) / count, 0.0, kLongestS);
    if (!intervalS_ || count > 1) {
        // One that has not shown tells that the interval is another.
        intervalS_ = measuredS;
        syncS_ = syncS;
        return;
    }
    // A Sync that was held up does not make the next one late.
    const double expectedS = syncS_ + *intervalS_;
    const double lateS = syncS - expectedS;
    syncS_ = lateS > 0.0 && lateS < *intervalS_ ? expectedS + kNewPart * lateS : syncS;
    *intervalS_ += kNewPart * (measuredS - *intervalS_);
}

void SyncMoments::add(const Look& look) {
    const std::optional<long long> syncNs = lastSyncNs(look);
    if (!sharesClock_ || !syncNs || (before_ && *syncNs == syncNs_)) {
        return;
    }
    // The clock of the record may have been set since.
    const double ageS = 1e-9 * static_cast<double>(look.systemNs - *syncNs);
    const double syncS = look.monotonicS - std::clamp(ageS, 0.0, kLongestS);
    const unsigned short count = before_ ? syncsBetween(*before_, look) : 0;
    if (count == 0 || beganAnew(*before_, look)) {
        intervalS_.reset();
        syncS_ = syncS;
    } else {
        learn(syncS, *syncNs, count);
    }
    syncNs_ = *syncNs;
    before_ = look;
}

double SyncMoments::nextS(double nowS) const {
    if (!intervalS_ || *intervalS_ < kShortestS) {
        return nowS + kShortestS;
    }
    const double passed = (nowS - syncS_) / *intervalS_;
    const bool isLate = passed >= 1.0 + kAfterSync && passed < 1.0 + kOnceMore;
    const double next = isLate ? 1.0 + kOnceMore
                               : 1.0 + kAfterSync + std::max(0.0, std::floor(passed - kAfterSync));
    // A moment that has come may lie before itself once it was divided and multiplied again.
    return std::max(syncS_ + next * *intervalS_, nowS + kLeastStepS);
}

}  // namespace tsyn
