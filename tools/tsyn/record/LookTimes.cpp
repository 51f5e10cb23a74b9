#include "tools/tsyn/record/LookTimes.h"

#include <algorithm>
#include <cmath>

namespace tsyn {
namespace {

constexpr double kLongestS = 1.0;
constexpr double kShortestS = 0.002;
constexpr double kFirstStepS = 0.01;
/** Nothing is looked for in the first part of an interval; then often enough to tell a sample's
 *  moment within a tenth of it. */
constexpr double kQuietPart = 0.9;
constexpr double kStepPart = 0.1;
/** After so many intervals without a Sync it is looked for less often. */
constexpr double kSilentIntervals = 4.0;

}  // namespace

bool LookTimes::isSample(double nowS, bool hasChanged) {
    firstS_ = firstS_.value_or(nowS);
    if (hasChanged) {
        if (changeS_) {
            intervalS_ = std::clamp(nowS - *changeS_, kShortestS, kLongestS);
        }
        changeS_ = nowS;
    }
    const bool isSample = rateHz_ || hasChanged || !sampleS_ || nowS - *sampleS_ >= kLongestS;
    if (isSample) {
        // On the grid of the rate, unless that has been left behind.
        const bool isLate = !rateHz_ || !sampleS_ || nowS - *sampleS_ >= 2.0 / *rateHz_;
        sampleS_ = isLate ? nowS : *sampleS_ + 1.0 / *rateHz_;
    }
    return isSample;
}

double LookTimes::nextS(double nowS) const {
    if (rateHz_) {
        return sampleS_.value_or(nowS) + 1.0 / *rateHz_;
    }
    return std::min(betweenChangesS(nowS), sampleS_.value_or(nowS) + kLongestS);
}

double LookTimes::betweenChangesS(double nowS) const {
    if (!intervalS_) {
        return nowS + kFirstStepS;
    }
    const double quietUntilS = *changeS_ + kQuietPart * *intervalS_;
    if (quietUntilS > nowS) {
        return quietUntilS;
    }
    const bool isSilent = nowS - *changeS_ > kSilentIntervals * *intervalS_;
    const double part = isSilent ? 1.0 : kStepPart;
    return nowS + std::clamp(part * *intervalS_, kShortestS, kLongestS);
}

double LookTimes::sinceChangeS(double nowS) const {
    return nowS - changeS_.value_or(firstS_.value_or(nowS));
}

}  // namespace tsyn
