#include "tools/tsyn/run/SenderWatch.h"

#include <algorithm>
#include <bitset>
#include <cstdint>

namespace tsyn {
namespace {

constexpr double kLeastWindowS = 0.9;
/** Enough for the surplus of a second sender to stand out. */
constexpr double kIntervals = 4.0;
constexpr int kLeastSurplus = 2;
constexpr unsigned int kWindows = 5;
constexpr std::size_t kLeastCrowded = 2;

}  // namespace

SenderWatch::SenderWatch(double syncIntervalMs)
    : windowS_(std::max(kLeastWindowS, kIntervals * syncIntervalMs / 1000.0)) {}

void SenderWatch::update(const gPtpTimeDataStruct& record, double nowS) {
    const Counters now{nowS, record.acceptedSync, record.sequenceId};
    if (!window_ || now.accepted < window_->accepted) {
        window_ = now;
        return;
    }
    if (nowS - window_->sinceS < windowS_) {
        return;
    }
    const auto accepted = static_cast<int>(now.accepted - window_->accepted);
    // The ids are 16 bits wide and begin anew after the last one.
    const auto advance = static_cast<std::int16_t>(now.sequenceId - window_->sequenceId);
    const bool isCrowded = accepted - advance >= kLeastSurplus;
    constexpr unsigned int kMask = (1U << kWindows) - 1;
    crowded_ = (crowded_ << 1 | (isCrowded ? 1U : 0U)) & kMask;
    window_ = now;
}

bool SenderWatch::seesTwo() const {
    return std::bitset<kWindows>(crowded_).count() >= kLeastCrowded;
}

}  // namespace tsyn
