#include "profile/StepMarks.h"

#include <cmath>

#include "base/Extended80.h"

namespace {

/** The second Follow_Up behind a step belongs to a Sync that left behind it. */
constexpr int kSureToHaveMade = 2;

double distance(long long a, long long b) {
    return std::fabs(static_cast<double>(a) - static_cast<double>(b));
}

}  // namespace

void StepMarks::noteStep(long long ns) {
    if (pending_.count == 0) {
        followUpsSince_ = 0;
    }
    ++pending_.count;
    pending_.lastNs = ns;
    pendingSumNs_ = static_cast<long long>(static_cast<unsigned long long>(pendingSumNs_) +
                                           static_cast<unsigned long long>(ns));
}

bool StepMarks::hasMade(long long timeOverMonotonicNs) const {
    const long long moved = signedDiff(static_cast<unsigned long long>(timeOverMonotonicNs),
                                       static_cast<unsigned long long>(earlierNs_));
    return !hasEarlier_ || followUpsSince_ >= kSureToHaveMade ||
           distance(moved, pendingSumNs_) < distance(moved, 0);
}

StepMarks::Told StepMarks::ofFollowUp(unsigned long long timeNs) {
    const long long timeOverMonotonicNs = signedDiff(timeNs, syncNs_);
    ++followUpsSince_;
    if (pending_.count != 0 && hasMade(timeOverMonotonicNs)) {
        told_.count = static_cast<unsigned short>(told_.count + pending_.count);
        told_.lastNs = pending_.lastNs;
        pending_ = Told{};
        pendingSumNs_ = 0;
    }
    hasEarlier_ = true;
    earlierNs_ = timeOverMonotonicNs;
    return told_;
}
