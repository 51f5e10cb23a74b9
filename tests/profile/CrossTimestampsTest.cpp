#include "profile/CrossTimestamps.h"

#include <gtest/gtest.h>

namespace {

ptp_clock_time at(long long seconds, unsigned int ns) {
    ptp_clock_time time{};
    time.sec = seconds;
    time.nsec = ns;
    return time;
}

TEST(NarrowestBracket, GivesItsMiddleAndHalfItsWidth) {
    const ptp_clock_time samples[][3] = {
        {at(10, 0), at(20, 1), at(10, 900)},
        {at(10, 1000), at(20, 1111), at(10, 1200)},
        {at(10, 2000), at(20, 2), at(10, 2500)},
    };
    const auto best = cross_timestamps::narrowest(samples, 3);
    EXPECT_EQ(10000001100ULL, best.times.systemTime);
    EXPECT_EQ(20000001111ULL, best.times.phcTime);
    EXPECT_EQ(101U, best.halfWidthNs);
}

TEST(NarrowestBracket, IsNotOneInWhichTheSystemClockWasSetBack) {
    const ptp_clock_time samples[][3] = {
        {at(10, 0), at(20, 1), at(9, 0)},
        {at(9, 1000), at(20, 1111), at(9, 2000)},
    };
    const auto best = cross_timestamps::narrowest(samples, 2);
    EXPECT_EQ(9000001500ULL, best.times.systemTime);
}

TEST(NarrowestBracket, CrossesTheSecond) {
    const ptp_clock_time samples[][3] = {{at(9, 999999900), at(5, 7), at(10, 100)}};
    const auto best = cross_timestamps::narrowest(samples, 1);
    EXPECT_EQ(10000000000ULL, best.times.systemTime);
}

TEST(CrossTimestamp, OfNoDeviceIsNone) {
    const ptp_ext_time_t none = cross_timestamps::best(0);
    EXPECT_EQ(0U, none.systemTime);
    EXPECT_EQ(0U, none.phcTime);
    EXPECT_EQ(cross_timestamps::kUnknownHalfWidth, cross_timestamps::lastHalfWidthNs());
}

}  // namespace
