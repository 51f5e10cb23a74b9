#include "profile/DelayFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

constexpr DelayFilter::Rate kUnknown{0, 200e-6};

/** A neighbour across a cable, whose clock is slower by 37 ppm; stamps are rounded to 8 ns. */
class Neighbour {
public:
    explicit Neighbour(unsigned seed = 1) : random_(seed) {}

    PdelayTimes exchange(double turnaroundNs = 1e6, double errorNs = 0) {
        now_ += 1e9;
        const double t4 = now_ + 2 * delayNs + turnaroundNs;
        return {own(now_), other(now_ + delayNs), other(now_ + delayNs + turnaroundNs),
                own(t4 + 2 * errorNs)};
    }

    double delayNs = 500;

private:
    static constexpr double kEpoch = 1e9;

    unsigned long long stamp(double ns) {
        std::uniform_real_distribution<double> phase(0, 8);
        return static_cast<unsigned long long>((ns + phase(random_)) / 8) * 8;
    }
    unsigned long long own(double ns) { return stamp(kEpoch + ns * (1 + 37e-6)); }
    unsigned long long other(double ns) { return stamp(5 * kEpoch + ns); }

    double now_ = 0;
    std::mt19937 random_;
};

DelayFilter settled(Neighbour& neighbour) {
    DelayFilter filter;
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(filter.take(neighbour.exchange(), kUnknown));
    }
    return filter;
}

TEST(DelayFilter, MeasuresWithinItsDoubtWhateverTheTurnaround) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        Neighbour neighbour(seed);
        DelayFilter filter = settled(neighbour);
        for (const double turnaround : {1e4, 1e6, 30e6}) {
            filter.take(neighbour.exchange(turnaround), kUnknown);
            EXPECT_NEAR(500, static_cast<double>(filter.delayNs()), 10);
            EXPECT_NEAR(500, static_cast<double>(filter.delayNs()), filter.doubt());
        }
    }
}

TEST(DelayFilter, IsUsableFromTheFirstExchangeOn) {
    Neighbour neighbour;
    DelayFilter filter;
    EXPECT_FALSE(filter.isKnown());
    EXPECT_TRUE(filter.take(neighbour.exchange(20e6), kUnknown));
    EXPECT_TRUE(filter.isKnown());
    EXPECT_NEAR(500, static_cast<double>(filter.delayNs()), filter.doubt());
    EXPECT_TRUE(filter.reconsider({-37e-6, 1e-6}));
    EXPECT_NEAR(500, static_cast<double>(filter.delayNs()), 20);
    EXPECT_FALSE(filter.reconsider({-37e-6, 1e-6}));
}

TEST(DelayFilter, IsNotMovedByAnOutlier) {
    Neighbour neighbour;
    DelayFilter filter = settled(neighbour);
    for (const double error : {20000.0, 700.0, -300.0}) {
        filter.take(neighbour.exchange(1e6, error), kUnknown);
        EXPECT_NEAR(500, static_cast<double>(filter.delayNs()), 10);
        filter.take(neighbour.exchange(), kUnknown);
        filter.take(neighbour.exchange(), kUnknown);
    }
}

TEST(DelayFilter, RefusesTimesThatNoCableExplains) {
    Neighbour neighbour;
    DelayFilter filter = settled(neighbour);
    PdelayTimes times = neighbour.exchange();
    EXPECT_FALSE(filter.take({times.t4 + 1, times.t2, times.t3, times.t4}, kUnknown));
    EXPECT_FALSE(filter.take({times.t1, times.t3 + 1, times.t3, times.t4}, kUnknown));
    EXPECT_FALSE(filter.take({times.t1, times.t2, times.t3, times.t4 + 200000}, kUnknown));
    EXPECT_FALSE(filter.take({times.t1, times.t2, times.t3, times.t4 - 2000}, kUnknown));
    EXPECT_NEAR(500, static_cast<double>(filter.delayNs()), 10);
}

TEST(DelayFilter, FollowsAnotherCableAfterThreeExchanges) {
    Neighbour neighbour;
    DelayFilter filter = settled(neighbour);
    neighbour.delayNs = 5000;
    for (int i = 0; i < 3; ++i) {
        filter.take(neighbour.exchange(), kUnknown);
    }
    EXPECT_NEAR(5000, static_cast<double>(filter.delayNs()), 15);
}

TEST(DelayFilter, OfAShortCableIsNeverNegative) {
    Neighbour neighbour;
    neighbour.delayNs = 0;
    DelayFilter filter = settled(neighbour);
    EXPECT_GE(filter.delayNs(), 0);
    EXPECT_LE(filter.delayNs(), 10);
}

}  // namespace
