#include "ptp/LinkDelay.h"

#include <cmath>

#include "tests/ptp/Handlers.h"
#include "tests/support/Seed.h"

namespace {

constexpr unsigned long long kSecond = 1000000000;

TEST(NeighbourRateRatio, Is1WithoutAPreviousExchange) {
    EXPECT_EQ(1.0L, neighbourRateRatio(7, 0, 9, 5));
    EXPECT_EQ(1.0L, neighbourRateRatio(7, 5, 9, 0));
}

TEST(NeighbourRateRatio, IsPeerTimeOverOwnTime) {
    EXPECT_EQ(0.5L, neighbourRateRatio(3 * kSecond, kSecond, 5 * kSecond, kSecond));
}

TEST(NeighbourRateRatio, ReadsNegativeDifferencesAsUnsigned) {
    EXPECT_EQ(18446744073709551615.0L, neighbourRateRatio(4, 5, 6, 5));
}

TEST(MeanLinkDelay, IsHalfOfTheRoundTripLessTheTurnaround) {
    EXPECT_EQ(500, meanLinkDelay({1000, 5000, 5300, 2300}, 1.0L));
    EXPECT_EQ(1150, meanLinkDelay({1000, 5000, 5300, 2300}, 2.0L));
}

TEST(MeanLinkDelay, TruncatesTowardZero) {
    EXPECT_EQ(1, meanLinkDelay({0, 0, 100, 103}, 1.0L));
    EXPECT_EQ(0, meanLinkDelay({0, 0, 100, 99}, 1.0L));
    EXPECT_EQ(-1, meanLinkDelay({0, 0, 100, 97}, 1.0L));
}

TEST(MeanLinkDelay, ReadsBothDifferencesAsSigned) {
    EXPECT_EQ(-3, meanLinkDelay({10, 0, 0, 4}, 1.0L));
    EXPECT_EQ(3, meanLinkDelay({0, 10, 4, 0}, 1.0L));
}

TEST(DelayLimits, Are1And49999) {
    EXPECT_TRUE(isDelayInLimits(1));
    EXPECT_TRUE(isDelayInLimits(49999));
    for (const long long delay : {0LL, -1LL, 50000LL, 1LL << 32, -(1LL << 62)}) {
        EXPECT_FALSE(isDelayInLimits(delay)) << delay;
    }
}

TEST(FilteredDelay, IsTheAverageAndStartsAnewFrom0) {
    EXPECT_EQ(550, filteredDelay(600, 501));
    EXPECT_EQ(501, filteredDelay(0, 501));
    EXPECT_EQ(49999, filteredDelay(49999, 49999));
}

struct Link {
    double delay;       ///< own clock, ns
    double rate;        ///< peer over own
    double turnaround;  ///< own clock, ns
};

/** Times that two ideal clocks would stamp for a request sent at own time t1. */
PdelayTimes exchangeAt(unsigned long long t1, const Link& link) {
    const auto peer = [&](long double own) {
        return static_cast<unsigned long long>(std::llroundl(5e12L + link.rate * own));
    };
    const long double sent = static_cast<long double>(t1);
    return {
        t1, peer(sent + link.delay), peer(sent + link.delay + link.turnaround),
        static_cast<unsigned long long>(std::llroundl(sent + 2 * link.delay + link.turnaround))};
}

TEST(LinkDelayProperty, TwoExchangesFindTheDelayWithin2Ns) {
    std::mt19937_64 random = seededGenerator();
    std::uniform_real_distribution<double> delay(3, 49990);
    std::uniform_real_distribution<double> ppm(-100, 100);
    std::uniform_real_distribution<double> turnaround(0, 1e7);
    for (int round = 0; round < 20000; ++round) {
        const Link link{delay(random), 1 + ppm(random) * 1e-6, turnaround(random)};
        const PdelayTimes before = exchangeAt(kSecond + random() % kSecond, link);
        const PdelayTimes now = exchangeAt(before.t1 + kSecond, link);
        const long double ratio = neighbourRateRatio(now.t3, before.t3, now.t4, before.t4);
        const long long found = meanLinkDelay(now, ratio);
        // The peer's clock counts the delay.
        EXPECT_NEAR(link.delay * link.rate, static_cast<double>(found), 2.0)
            << link.delay << ' ' << link.rate << ' ' << link.turnaround;
        EXPECT_TRUE(isDelayInLimits(found)) << found;
    }
}

TEST(TimeBaseFit, OfNoCorrectionIs0) {
    const TimeBaseFit fit = fitTimeBase({}, {100, 200, 300});
    EXPECT_EQ(0.0, fit.slope);
    EXPECT_EQ(0, fit.estimate);
}

TEST(TimeBaseFit, OfOneCorrectionHasNoSlope) {
    const TimeBaseFit earlier = fitTimeBase({0, 700}, {5000, 4000});
    EXPECT_EQ(0.0, earlier.slope);
    EXPECT_EQ(4300, earlier.estimate);
    const TimeBaseFit latest = fitTimeBase({700}, {5000});
    EXPECT_EQ(0.0, latest.slope);
    EXPECT_EQ(4300, latest.estimate);
}

TEST(TimeBaseFit, OfEqualTimesHasNoSlope) {
    const TimeBaseFit fit = fitTimeBase({900, 700}, {4000, 4000});
    EXPECT_EQ(0.0, fit.slope);
    EXPECT_EQ(3300, fit.estimate);
}

TEST(TimeBaseFit, FollowsALineAndSkipsPositionsWithoutACorrection) {
    // Twice as many ns of correction as of time; the oldest sample is the origin.
    const TimeBaseFit fit = fitTimeBase({11000, 0, 7000, 5000, 0}, {5000, 4000, 3000, 2000, 1000});
    EXPECT_EQ(2.0, fit.slope);
    EXPECT_EQ(5000 - (5000 + 2 * 3000), fit.estimate);
}

TEST(TimeBaseFit, CountsInUnitsOf50NsTruncatedTowardZero) {
    EXPECT_EQ(1.0, fitTimeBase({1000 + 99, 1000}, {2099, 2000}).slope);
    EXPECT_EQ(2.0, fitTimeBase({1000 + 100, 1000}, {2099, 2000}).slope);
    EXPECT_EQ(-1.0, fitTimeBase({1000 - 99, 1000}, {2099, 2000}).slope);
}

TEST(TimeBaseFit, DividesBy50InExtendedPrecision) {
    // The quotient of a double 0.02 would be 3 more and round to another double.
    EXPECT_EQ(1e17, fitTimeBase({5000000000000000349, 1}, {2050, 2000}).slope);
}

TEST(TimeBaseFit, AddsTheInterceptInNs) {
    // x = 0, 100, 200 and y = 0, 0, 200: slope 1, intercept -100/3.
    const TimeBaseFit fit = fitTimeBase({10100, 100, 100}, {11000, 6000, 1000});
    EXPECT_EQ(1.0, fit.slope);
    EXPECT_EQ(11000 - 8433, fit.estimate);
}

TEST(TimeBaseFit, SquaresWrapAt64Bits) {
    // x = 0, 2^32 and y = 0, 1: the sum of squares is 0, so (2 * 2^32 - 2^32) / (0 - 2^64).
    constexpr unsigned long long kFar = 50ULL << 32;
    EXPECT_EQ(-1.0 / 4294967296.0, fitTimeBase({1050, 1000}, {kFar + 2000, 2000}).slope);
}

TEST(TimeBaseFit, SumsWrapAt64Bits) {
    // Four times x = 2^31 and y = 1 beside the origin: (5 * 2^33 - 2^33 * 4) / (0 - 2^66).
    constexpr unsigned long long kFar = (50ULL << 31) + 2000;
    EXPECT_EQ(-1.0 / 8589934592.0,
              fitTimeBase({1050, 1050, 1050, 1050, 1000}, {kFar, kFar, kFar, kFar, 2000}).slope);
}

}  // namespace
