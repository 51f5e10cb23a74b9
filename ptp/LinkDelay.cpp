#include "ptp/LinkDelay.h"

#include "base/Extended80.h"

namespace {

constexpr int kHistory = 8;
constexpr long long kLongestDelay = 49999;
constexpr long double kFitUnitNs = 50;
constexpr long double kFitUnit = 1 / kFitUnitNs;

struct FitSums {
    long long n, x, y, xx, xy;
};

long long wrappingAdd(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) +
                                  static_cast<unsigned long long>(b));
}

long long wrappingProduct(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) *
                                  static_cast<unsigned long long>(b));
}

long long fitUnits(unsigned long long value, unsigned long long origin) {
    return toS64(kFitUnit * static_cast<long double>(signedDiff(value, origin)));
}

}  // namespace

long double neighbourRateRatio(unsigned long long t3, unsigned long long previousT3,
                               unsigned long long t4, unsigned long long previousT4) {
    if (previousT3 == 0 || previousT4 == 0) {
        return 1;
    }
    return unsignedDiff(t3, previousT3) / unsignedDiff(t4, previousT4);
}

long long meanLinkDelay(const PdelayTimes& times, long double ratio) {
    const auto roundTrip = static_cast<long double>(signedDiff(times.t4, times.t1));
    const auto turnaround = static_cast<long double>(signedDiff(times.t3, times.t2));
    return toS64((roundTrip * ratio - turnaround) * 0.5L);
}

bool isDelayInLimits(long long delay) {
    return static_cast<unsigned long long>(delay) - 1 <= kLongestDelay - 1;
}

int filteredDelay(int filtered, long long delay) {
    const long long before = filtered == kEmptyFilter ? delay : filtered;
    return static_cast<int>((before + delay) / 2);
}

TimeBaseFit fitTimeBase(const long long (&corrections)[8],
                        const unsigned long long (&responseTimes)[8]) {
    int oldest = kHistory - 1;
    while (oldest >= 0 && corrections[oldest] == 0) {
        --oldest;
    }
    if (oldest < 0) {
        return {0, 0};
    }
    const auto originY = static_cast<unsigned long long>(corrections[oldest]);
    const unsigned long long originX = responseTimes[oldest];
    FitSums sums{};
    for (int i = 0; i < kHistory; ++i) {
        if (corrections[i] == 0) {
            continue;
        }
        const long long x = fitUnits(responseTimes[i], originX);
        const long long y = fitUnits(static_cast<unsigned long long>(corrections[i]), originY);
        ++sums.n;
        sums.x = wrappingAdd(sums.x, x);
        sums.y = wrappingAdd(sums.y, y);
        sums.xx = wrappingAdd(sums.xx, wrappingProduct(x, x));
        sums.xy = wrappingAdd(sums.xy, wrappingProduct(x, y));
    }
    const auto n = static_cast<double>(sums.n);
    const auto sx = static_cast<double>(sums.x);
    const auto sy = static_cast<double>(sums.y);
    const double denominator = n * static_cast<double>(sums.xx) - sx * sx;
    double slope = 0;
    double intercept = 0;
    if (denominator != 0) {
        slope = (n * static_cast<double>(sums.xy) - sx * sy) / denominator;
        intercept = (sy - slope * sx) / n;
    }
    const long double estimate =
        static_cast<long double>(corrections[oldest]) +
        static_cast<long double>(slope) *
            static_cast<long double>(signedDiff(responseTimes[0], originX)) +
        kFitUnitNs * static_cast<long double>(intercept);
    return {slope, signedDiff(responseTimes[0], static_cast<unsigned long long>(toS64(estimate)))};
}
