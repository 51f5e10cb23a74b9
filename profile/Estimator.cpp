#include "profile/Estimator.h"

#include <algorithm>
#include <cmath>

#include "base/Extended80.h"
#include "profile/Median.h"

namespace estimator {

namespace {

/** Stamps are rounded to some ns: less than this tells nothing about their quality. */
constexpr double kLeastResidual = 4;
constexpr double kLeastNoise = 16;
/** Median distance to what a normal distribution has as sigma, three of them. */
constexpr double kThreeSigma = 3 * 1.4826;
constexpr double kNeverFar = 60;
/** What noise and a master's small corrections move a reading by. */
constexpr double kTolerance = 1000;
/** An oscillator's rate changes by less while nobody looks. */
constexpr double kWander = 1e-6;
constexpr double kRestingWander = 100e-9;
/** And goes on changing while nothing is heard: by 0.25 ppm each second. */
constexpr double kWanderPerNs = 0.25e-15;
constexpr int kReliableCount = 3;
constexpr double kReliableSlopeDoubt = 5e-6;
constexpr double kGapIntervals = 4;
constexpr double kNearIntervals = 0.25;
constexpr int kFewestOfBent = 4;
constexpr double kLeastBend = 20;

struct Point {
    double x, e;
    double weight;
};

/** What remains uncertain of the narrowest bracket's middle. */
constexpr double kLeastSpread = 15;

/** A bracket that is wider than the best says so much less about where in it the reading was. */
double weightOf(double doubt, double leastDoubt) {
    const double spread = doubt - leastDoubt;
    return 1 / (spread * spread / 3 + kLeastSpread * kLeastSpread);
}

/** Halves upwards. std::floor would be a call into a library that is used for nothing else. */
long long rounded(double value) {
    const double higher = value + 0.5;
    const auto whole = static_cast<long long>(higher);
    return static_cast<double>(whole) > higher ? whole - 1 : whole;
}

double medianSlope(const Point* points, int count) {
    static_assert(kCapacity * (kCapacity - 1) / 2 <= kMostOfMedian);
    double slopes[kMostOfMedian];
    int pairs = 0;
    for (int i = 0; i < count; ++i) {
        for (int k = i + 1; k < count; ++k) {
            if (points[k].x != points[i].x) {
                slopes[pairs++] = (points[k].e - points[i].e) / (points[k].x - points[i].x);
            }
        }
    }
    return pairs == 0 ? 0 : median(slopes, pairs);
}

/** Marks the points that lie near the line of the median slope. */
void chooseNear(const Point* points, int count, bool* near) {
    const double slope = medianSlope(points, count);
    double lifts[kCapacity];
    for (int i = 0; i < count; ++i) {
        lifts[i] = points[i].e - slope * points[i].x;
    }
    double sorted[kCapacity];
    std::copy(lifts, lifts + count, sorted);
    const double lift = median(sorted, count);
    for (int i = 0; i < count; ++i) {
        sorted[i] = std::fabs(lifts[i] - lift);
    }
    const double limit = std::max(kNeverFar, kThreeSigma * median(sorted, count));
    for (int i = 0; i < count; ++i) {
        near[i] = std::fabs(lifts[i] - lift) <= limit;
    }
}

/** Least squares through the marked points; a slope that is known stays, and so does any when they
 *  are at one place. */
void leastSquares(const Point* points, const bool* near, int count, bool slopeIsKnown, Line& line) {
    double n = 0, sx = 0, se = 0;
    for (int i = 0; i < count; ++i) {
        if (near[i]) {
            n += points[i].weight;
            sx += points[i].weight * points[i].x;
            se += points[i].weight * points[i].e;
        }
    }
    const double meanX = sx / n;
    const double meanE = se / n;
    double xx = 0, xe = 0;
    for (int i = 0; i < count; ++i) {
        if (near[i]) {
            const double apart = points[i].x - meanX;
            xx += points[i].weight * apart * apart;
            xe += points[i].weight * apart * (points[i].e - meanE);
        }
    }
    line.slope = xx > 0 && !slopeIsKnown ? xe / xx : line.slope;
    line.lift = meanE - line.slope * meanX;
}

/** Whether chooseNear would mark every point, which is so for nearly every line and cheaper to find
 *  out than a median slope. Slopes that differ from the line's by steepest at most leave all points
 *  within kNeverFar of each other; that of the median is among them when more than half are. */
bool allAreNear(const Point* points, int count, const Line& line) {
    constexpr double kRoundings = 1;
    double lifts[kCapacity];
    for (int i = 0; i < count; ++i) {
        lifts[i] = points[i].e - line.slope * points[i].x;
    }
    const auto ends = std::minmax_element(lifts, lifts + count);
    const double height = *ends.second - *ends.first;
    const double steepest = (kNeverFar - kRoundings - height) / (points[count - 1].x - points[0].x);
    int pairs = 0;
    int flat = 0;
    for (int i = 0; i < count; ++i) {
        for (int k = i + 1; k < count; ++k) {
            const double apart = points[k].x - points[i].x;
            flat += apart > 0 && std::fabs(lifts[k] - lifts[i]) <= steepest * apart ? 1 : 0;
            ++pairs;
        }
    }
    return 2 * flat > pairs;
}

}  // namespace

unsigned long long Line::at(unsigned long long x) const {
    const long long dx = signedDiff(x, x0);
    const long long gain = rounded(lift + slope * static_cast<double>(dx));
    return y0 + static_cast<unsigned long long>(dx) + static_cast<unsigned long long>(gain);
}

unsigned long long Line::inverse(unsigned long long y) const {
    const long long dy = signedDiff(y, y0);
    const long long gain = rounded((lift + slope * static_cast<double>(dy)) / (1 + slope));
    return x0 + static_cast<unsigned long long>(dy) - static_cast<unsigned long long>(gain);
}

double Line::above(const Reading& reading) const {
    const double dx = static_cast<double>(signedDiff(reading.x, x0));
    const unsigned long long here = y0 + (reading.x - x0);
    return static_cast<double>(signedDiff(reading.y, here)) - lift - slope * dx;
}

Line fit(const Reading* readings, int count, double slopeBefore, double slopeDoubtBefore) {
    const Reading& latest = readings[count - 1];
    Line line{latest.x,        latest.y, 0, slopeBefore, kLeastNoise, latest.doubt + kLeastNoise,
              slopeDoubtBefore};
    if (count < 2) {
        return line;
    }
    Point points[kCapacity];
    bool near[kCapacity];
    const double leastDoubt =
        std::min_element(readings, readings + count, [](const Reading& a, const Reading& b) {
            return a.doubt < b.doubt;
        })->doubt;
    for (int i = 0; i < count; ++i) {
        const long long dx = signedDiff(readings[i].x, latest.x);
        const long long dy = signedDiff(readings[i].y, latest.y);
        points[i] = {static_cast<double>(dx), static_cast<double>(dy - dx),
                     weightOf(readings[i].doubt, leastDoubt)};
    }
    // Readings that follow each other closely tell less of the rate than was known before them.
    const double span = -points[0].x;
    const bool slopeIsKnown = 2 * kLeastNoise > slopeDoubtBefore * span;
    std::fill_n(near, count, true);
    leastSquares(points, near, count, slopeIsKnown, line);
    if (!allAreNear(points, count, line)) {
        line.slope = slopeBefore;
        chooseNear(points, count, near);
        leastSquares(points, near, count, slopeIsKnown, line);
    }
    double residual = 0;
    double tightest = latest.doubt + std::fabs(line.above(latest));
    for (int i = 0; i < count; ++i) {
        if (near[i]) {
            const double distance = std::fabs(line.above(readings[i]));
            residual = std::max(residual, distance);
            tightest = std::min(tightest, distance + readings[i].doubt);
        }
    }
    const double noise = std::max(residual, kLeastNoise);
    line.residual = count < kReliableCount ? noise : std::max(residual, kLeastResidual);
    line.tightest = tightest;
    line.slopeDoubt = slopeIsKnown ? slopeDoubtBefore : std::min(kLargestSlope, 2 * noise / span);
    return line;
}

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
    if (count_ >= 2 && apart < kNearIntervals * interval()) {
        return replaceLast(reading);
    }
    // A line across a silence would hang on its last reading alone.
    if (count_ >= 2 && apart > kGapIntervals * interval()) {
        startAnew(&reading, 1, apart);
    } else {
        append(reading);
    }
    return Verdict::kTaken;
}

double Tracker::interval() const {
    return static_cast<double>(signedDiff(last().x, readings_[0].x)) /
           static_cast<double>(count_ - 1);
}

/** Two readings at nearly one place tell no rate: the better one stays. */
Verdict Tracker::replaceLast(const Reading& reading) {
    if (reading.doubt < last().doubt) {
        readings_[count_ - 1] = reading;
        refit();
    }
    return Verdict::kRepeated;
}

void Tracker::append(const Reading& reading) {
    if (count_ == kCapacity) {
        std::copy(readings_ + 1, readings_ + kCapacity, readings_);
        --count_;
    }
    readings_[count_++] = reading;
    refit();
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
void Tracker::startAnew(const Reading* readings, int count, double silentNs) {
    if (count_ >= kReliableCount) {
        slopeBefore_ = line_.slope;
        slopeDoubtBefore_ = line_.slopeDoubt + kRestingWander;
    }
    slopeDoubtBefore_ = std::min(kLargestSlope, slopeDoubtBefore_ + kWanderPerNs * silentNs);
    std::copy(readings, readings + count, readings_);
    count_ = count;
    refit();
}

void Tracker::bend(const Reading& reading) {
    const Reading both[] = {last(), reading};
    candidateCount_ = 0;
    refused_ = 0;
    startAnew(both, 2, 0);
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
