#include "profile/DelayFilter.h"

#include <algorithm>
#include <cmath>

#include "base/Extended80.h"
#include "profile/Estimator.h"
#include "profile/Median.h"

namespace {

constexpr double kLongestDelay = 50000;
/** Rounded stamps of a short cable may differ the wrong way. */
constexpr double kShortestDelay = -100;
constexpr long long kLongestExchangeNs = 2000000000;
constexpr double kThreeSigma = 3 * 1.4826;
constexpr double kNeverFar = 12;
/** Another cable: the last few agree with each other and are all this far from the median. */
constexpr double kOtherCable = 100;
constexpr int kOtherCableCount = 3;
constexpr double kStampDoubt = 8;
constexpr double kFewestThatScatter = 5;
constexpr double kAloneDoubt = 1000;
constexpr double kRounding = 4;

double between(unsigned long long later, unsigned long long earlier) {
    return static_cast<double>(signedDiff(later, earlier));
}

double medianOf(const double* values, int count) {
    double sorted[estimator::kCapacity];
    std::copy(values, values + count, sorted);
    return estimator::median(sorted, count);
}

bool arePossible(const PdelayTimes& times) {
    const long long roundTrip = signedDiff(times.t4, times.t1);
    const long long turnaround = signedDiff(times.t3, times.t2);
    return roundTrip >= 0 && turnaround >= 0 && roundTrip <= kLongestExchangeNs &&
           turnaround <= kLongestExchangeNs;
}

bool lastAreOfAnotherCable(const double* delays, int count) {
    if (count < 2 * kOtherCableCount) {
        return false;
    }
    const double median = medianOf(delays, count);
    double least = delays[count - 1];
    double most = least;
    for (int i = count - kOtherCableCount; i < count; ++i) {
        least = std::min(least, delays[i]);
        most = std::max(most, delays[i]);
    }
    const bool isFar = least > median + kOtherCable || most < median - kOtherCable;
    return isFar && most - least < kOtherCable;
}

}  // namespace

/** In the neighbour's ns, as the master's time is. The turnaround takes a millisecond or many, so
 *  that the rate counts. */
double DelayFilter::delayOf(const PdelayTimes& times) const {
    const double roundTrip = between(times.t4, times.t1);
    return (roundTrip - between(times.t3, times.t2) + roundTrip * slope_) / 2;
}

bool DelayFilter::reconsider(const Rate& rate) {
    if (count_ != 1 || rate.doubt >= rateBefore_.doubt) {
        return false;
    }
    rateBefore_ = rate;
    refresh();
    return true;
}

bool DelayFilter::take(const PdelayTimes& times, const Rate& rate) {
    if (!arePossible(times)) {
        return false;
    }
    if (count_ == 0) {
        slope_ = rate.slope;
    }
    const double delay = delayOf(times);
    const double rateDoubt = count_ == 0 ? rate.doubt * between(times.t4, times.t1) : 0;
    if (delay < kShortestDelay - rateDoubt || delay > kLongestDelay) {
        return false;
    }
    if (count_ > 0) {
        // Neither clock was set since, or the exchanges before tell nothing of this one's rate.
        const PdelayTimes& last = exchanges_[count_ - 1];
        const double own = between(times.t4, last.t4);
        const double other = between(times.t3, last.t3);
        if (own <= 0 || std::fabs(other - own) > estimator::kLargestSlope * own + kLongestDelay) {
            count_ = 0;
        }
    }
    if (count_ == kCapacity) {
        keepLast(kCapacity - 1);
    }
    exchanges_[count_++] = times;
    rateBefore_ = rate;
    refresh();
    return true;
}

void DelayFilter::keepLast(int count) {
    std::copy(exchanges_ + count_ - count, exchanges_ + count_, exchanges_);
    count_ = count;
}

long long DelayFilter::delayNs() const {
    const double whole = std::floor(std::max(delay_, 0.0) + 0.5);
    return static_cast<long long>(whole);
}

void DelayFilter::refresh() {
    estimator::Reading readings[kCapacity];
    for (int i = 0; i < count_; ++i) {
        readings[i] = {exchanges_[i].t4, exchanges_[i].t3, 0};
    }
    const estimator::Line line =
        estimator::fit(readings, count_, rateBefore_.slope, rateBefore_.doubt);
    slope_ = std::clamp(line.slope, -estimator::kLargestSlope, estimator::kLargestSlope);
    double delays[kCapacity];
    measure(delays);
    if (lastAreOfAnotherCable(delays, count_)) {
        keepLast(kOtherCableCount);
        measure(delays);
    }
    average(delays);
    // One exchange alone has its turnaround, often many milliseconds, measured by that rate; and a
    // master that sets its clock when it starts may have done so meanwhile.
    if (count_ == 1) {
        doubt_ += kAloneDoubt + rateBefore_.doubt * between(exchanges_[0].t4, exchanges_[0].t1) / 2;
    }
}

void DelayFilter::measure(double* delays) const {
    std::transform(exchanges_, exchanges_ + count_, delays,
                   [this](const PdelayTimes& times) { return delayOf(times); });
}

/** The mean of those near the median: steadier than the median, as little moved by outliers. */
void DelayFilter::average(const double* delays) {
    const double median = medianOf(delays, count_);
    double distances[kCapacity];
    for (int i = 0; i < count_; ++i) {
        distances[i] = std::fabs(delays[i] - median);
    }
    const double limit = std::max(kNeverFar, kThreeSigma * medianOf(distances, count_));
    double sum = 0;
    double farthest = 0;
    double near = 0;
    for (int i = 0; i < count_; ++i) {
        if (distances[i] <= limit) {
            sum += delays[i];
            farthest = std::max(farthest, distances[i]);
            near += 1;
        }
    }
    delay_ = sum / near;
    // Of a few, one may be wrong by itself; of more, they scatter.
    const double scatter = near < kFewestThatScatter ? 1 : std::sqrt(near);
    doubt_ = std::max(farthest, kStampDoubt) / scatter + kRounding;
}
