#include "profile/Estimator.h"

#include <algorithm>
#include <cmath>

#include "base/Extended80.h"
#include "profile/Median.h"

namespace estimator {

namespace {

/** What noise and a master's small corrections move a reading by. */
constexpr double kTolerance = 1000;
/** An oscillator's rate changes by less while nobody looks. */
constexpr double kWander = 1e-6;
constexpr double kRestingWander = 100e-9;
constexpr double kReliableSlopeDoubt = 5e-6;
constexpr double kGapIntervals = 4;
constexpr double kNearIntervals = 0.25;
constexpr double kLeastBend = 20;

}  // namespace

double Tracker::tolerance(const Reading& reading) const {
    const double apart = std::fabs(static_cast<double>(signedDiff(reading.x, last().x)));
    return kTolerance + 8 * reading.doubt + (line_.slopeDoubt + kWander) * apart;
}

bool Tracker::fits(const Reading& reading) const {
    return isEmpty() || std::fabs(line_.above(reading)) <= tolerance(reading);
}

bool Tracker::isReliable() const {
    return count_ >= kReliableCount || (count_ > 0 && slopeDoubtBefore_ <= kReliableSlopeDoubt);
}

Verdict Tracker::take(const Reading& reading) {
    if (!isEmpty() && reading.x == last().x) {
        return Verdict::kRepeated;
    }
    const bool later = isEmpty() || signedDiff(reading.x, last().x) > 0;
    if (!later || !fits(reading)) {
        return refuse(reading);
    }
    refused_ = 0;
    candidateCount_ = 0;
    const double apart = isEmpty() ? 0 : static_cast<double>(signedDiff(reading.x, last().x));
    if (!isEmpty() && apart < kNearIntervals * shortestInterval()) {
        return replaceLast(reading);
    }
    // A line across a silence would hang on its last reading alone.
    if (count_ >= 2 && apart > kGapIntervals * medianInterval()) {
        startAnew(&reading, 1, kWanderPerNs * apart);
    } else {
        append(reading, apart);
    }
    return Verdict::kTaken;
}

/** The median of those between readings: a silence that has readings before and behind it is none,
 *  even if it is most of the time. */
double Tracker::medianInterval() const {
    double intervals[kCapacity];
    for (int i = 1; i < count_; ++i) {
        intervals[i - 1] = static_cast<double>(signedDiff(readings_[i].x, readings_[i - 1].x));
    }
    return median(intervals, count_ - 1);
}

/** Two readings at nearly one place tell no rate: the better one stays. */
Verdict Tracker::replaceLast(const Reading& reading) {
    if (reading.doubt < last().doubt) {
        readings_[count_ - 1] = reading;
        refit();
    }
    return Verdict::kRepeated;
}

/** The least of those between readings, or of the line before when there is but one. */
double Tracker::shortestInterval() const {
    double shortest = shortestBefore_;
    for (int i = 1; i < count_; ++i) {
        const auto apart = static_cast<double>(signedDiff(readings_[i].x, readings_[i - 1].x));
        shortest = i == 1 ? apart : std::min(shortest, apart);
    }
    return shortest;
}

void Tracker::append(const Reading& reading, double apart) {
    if (count_ == kCapacity) {
        std::copy(readings_ + 1, readings_ + kCapacity, readings_);
        --count_;
    }
    slopeDoubtBefore_ = std::min(kLargestSlope, slopeDoubtBefore_ + kWanderPerNs * apart);
    readings_[count_++] = reading;
    refit();
    if (line_.leftOut >= kCandidates) {
        startAnew(readings_ + count_ - kCandidates, kCandidates, kWander);
    }
}

/** As many of the latest readings as one line explains: an oscillator that warms up bends it, so
 *  that the first half tells another present than the second. */
Line Tracker::fitLatest(const Reading* readings, int count, double slope, double slopeDoubt) {
    Line line = fit(readings, count, slope, slopeDoubt);
    for (int half = count / 2; half >= kFewestOfBent; half /= 2) {
        const Line later = fit(readings + count - half, half, slope, slopeDoubt);
        const double bend = std::fabs(later.lift - line.lift);
        if (bend <= std::max(1.5 * later.residual, kLeastBend)) {
            // Less of a bend than the noise shows is in the line all the same.
            line.residual += bend / 4;
            line.tightest += bend / 4;
            break;
        }
        line = later;
        line.residual += bend / 2;
        line.tightest += bend / 2;
    }
    return line;
}

void Tracker::refit() {
    line_ = fitLatest(readings_, count_, slopeBefore_, slopeDoubtBefore_);
    line_.slope = std::clamp(line_.slope, -kLargestSlope, kLargestSlope);
    if (line_.leftOut > 0) {
        // Either the latest is wrong or the line has ended.
        const double distance = std::fabs(line_.above(last()));
        line_.residual = std::max(line_.residual, distance);
        line_.tightest = std::max(line_.tightest, distance + last().doubt);
    }
}

/** Keeps what was refused, and believes it once a few in a row agree with each other. */
Verdict Tracker::refuse(const Reading& reading) {
    ++refused_;
    if (candidateCount_ > 0 && signedDiff(reading.x, candidates_[candidateCount_ - 1].x) <= 0) {
        candidateCount_ = 0;
    }
    if (candidateCount_ == kCandidates) {
        std::copy(candidates_ + 1, candidates_ + kCandidates, candidates_);
        --candidateCount_;
    }
    candidates_[candidateCount_++] = reading;
    if (candidateCount_ < kCandidates) {
        return Verdict::kRefused;
    }
    const Line line = fit(candidates_, kCandidates, 0, kLargestSlope);
    double farthest = 0;
    for (const Reading& each : candidates_) {
        farthest = std::max(farthest, std::fabs(line.above(each)));
    }
    if (std::fabs(line.slope) > kLargestSlope || farthest > kTolerance) {
        return Verdict::kRefused;
    }
    lastStep_ = line_.above(reading);
    slopeBefore_ = 0;
    slopeDoubtBefore_ = kLargestSlope;
    count_ = 0;
    startAnew(candidates_, kCandidates, 0);
    candidateCount_ = 0;
    refused_ = 0;
    return Verdict::kFollowed;
}

/** The rate so far remains the best guess until the new readings tell one. */
void Tracker::startAnew(const Reading* readings, int count, double moreSlopeDoubt) {
    if (count_ >= kReliableCount) {
        slopeBefore_ = line_.slope;
        slopeDoubtBefore_ = line_.slopeDoubt + kRestingWander;
    }
    slopeDoubtBefore_ = std::min(kLargestSlope, slopeDoubtBefore_ + moreSlopeDoubt);
    shortestBefore_ = shortestInterval();
    std::copy(readings, readings + count, readings_);
    count_ = count;
    refit();
}

void Tracker::bend(const Reading& reading) {
    const Reading both[] = {last(), reading};
    candidateCount_ = 0;
    refused_ = 0;
    startAnew(both, 2, kLargestSlope);
}

void Tracker::shift(unsigned long long byX, unsigned long long byY) {
    for (int i = 0; i < count_; ++i) {
        readings_[i].x += byX;
        readings_[i].y += byY;
    }
    line_.x0 += byX;
    line_.y0 += byY;
    candidateCount_ = 0;
    refused_ = 0;
}

void Tracker::forget() {
    *this = Tracker();
}

}  // namespace estimator
