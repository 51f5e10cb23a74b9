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
/** Doubts are two sigma of what scatters. */
constexpr double kTwoSigma = 2;
/** No rate is known better. */
constexpr double kLeastSlopeDoubt = 0.1e-9;

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

/** What was known of the slope before the points. */
struct Before {
    double slope;
    double precision;
};

/** Least squares through the marked points and the slope before them, each by what it is worth: two
 *  points that are close tell no rate that would be better than the one that was known. */
void leastSquares(const Point* points, const bool* near, int count, const Before& before,
                  Line& line) {
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
    const double precision = xx + before.precision;
    line.slope = (xe + before.slope * before.precision) / precision;
    line.lift = meanE - line.slope * meanX;
    line.slopeDoubt = kTwoSigma / std::sqrt(precision);
    line.tightest = kTwoSigma * std::sqrt(1 / n + meanX * meanX / precision);
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

/** By how much a line may miss a wandering clock over that time. Where halves are compared, they
 *  tell how much it bends. */
double bentBy(int count, double ns) {
    return count < 2 * kFewestOfBent ? kWanderPerNs * ns * ns / 2 : 0;
}

/** What the readings tell of the line through those near it. */
void judge(const Reading* readings, const Point* points, const bool* near, int count,
           double leastDoubt, Line& line) {
    const double span = points[count - 1].x - points[0].x;
    double residual = 0;
    double squares = 0;
    int free = -2;  // lift and slope take what they can
    for (int i = 0; i < count; ++i) {
        if (near[i]) {
            const double distance = std::fabs(line.above(readings[i]));
            residual = std::max(residual, distance);
            squares += points[i].weight * distance * distance;
            ++free;
        }
    }
    const double noisier = std::sqrt(std::max(1.0, squares / std::max(free, 1)));
    line.slopeDoubt *= noisier;
    line.tightest *= noisier;
    // Two cannot tell whether the rate changed between them.
    line.slopeDoubt += count < kReliableCount ? kWanderPerNs * span / 2 : 0;
    line.slopeDoubt = std::min(kLargestSlope, line.slopeDoubt);
    line.residual = std::max(residual, count < kReliableCount ? kLeastNoise : kLeastResidual);
    line.leftOut = 0;
    for (int i = 0; i < count; ++i) {
        line.leftOut = near[i] ? 0 : line.leftOut + 1;
    }
    // Of a bracket's middle, half of the narrowest is wrong in all of them alike; the rest
    // scatters.
    line.tightest += leastDoubt + bentBy(count, span) / 6;
    for (int i = 0; i < count; ++i) {
        if (near[i]) {
            const double distance = std::fabs(line.above(readings[i]));
            const double carried = line.slopeDoubt * -points[i].x + bentBy(count, points[i].x);
            line.tightest = std::min(line.tightest, distance + readings[i].doubt + carried);
        }
    }
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
    Line line{latest.x,         latest.y, 0, slopeBefore, kLeastNoise, latest.doubt + kLeastNoise,
              slopeDoubtBefore, 0};
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
    const double root = kTwoSigma / std::max(slopeDoubtBefore, kLeastSlopeDoubt);
    const Before before{slopeBefore, root * root};
    std::fill_n(near, count, true);
    leastSquares(points, near, count, before, line);
    if (!allAreNear(points, count, line)) {
        chooseNear(points, count, near);
        leastSquares(points, near, count, before, line);
    }
    judge(readings, points, near, count, leastDoubt, line);
    return line;
}

}  // namespace estimator
