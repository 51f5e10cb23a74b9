#include "platform/CrossTimestamp.h"

#include <gtest/gtest.h>

#include "tests/support/Vectors.h"

namespace {

std::vector<ptp_clock_time> readingsOf(const std::vector<long long>& ns) {
    std::vector<ptp_clock_time> readings;
    for (const long long value : ns) {
        ptp_clock_time reading{};
        reading.sec = value / 1000000000;
        reading.nsec = static_cast<unsigned int>(value % 1000000000);
        readings.push_back(reading);
    }
    return readings;
}

ptp_ext_time_t chosenFrom(const std::vector<long long>& ns) {
    return narrowestBracket(readingsOf(ns).data(), static_cast<unsigned>(ns.size() / 2));
}

TEST(CrossTimestamp, KeepsTheEarliestOfTheNarrowestBrackets) {
    for (const auto& vector : vectors("cross_timestamp")) {
        std::vector<long long> readings;
        for (const auto& reading : vector["readings"]) {
            readings.push_back(toS64(reading));
        }
        const ptp_ext_time_t best = chosenFrom(readings);
        EXPECT_EQ(toU64(vector["systemTime"]), best.systemTime);
        EXPECT_EQ(toU64(vector["phcTime"]), best.phcTime);
    }
}

TEST(CrossTimestamp, BorrowsASecondInTheWidth) {
    const ptp_ext_time_t best =
        chosenFrom({1000000000, 1, 1000000500, 2, 1999999900, 3, 2000000100});
    EXPECT_EQ(1999999900ULL, best.systemTime);
    EXPECT_EQ(3ULL, best.phcTime);
}

TEST(CrossTimestamp, GivesTheReadingBeforeAndNotTheMiddle) {
    const ptp_ext_time_t best = chosenFrom({100, 77, 300});
    EXPECT_EQ(100ULL, best.systemTime);
    EXPECT_EQ(77ULL, best.phcTime);
}

TEST(CrossTimestamp, ASystemClockThatWasSetBackIsTheNarrowest) {
    const ptp_ext_time_t best = chosenFrom({1000, 1, 1100, 2, 900, 3, 1000});
    EXPECT_EQ(1100ULL, best.systemTime);
    EXPECT_EQ(2ULL, best.phcTime);
}

TEST(CrossTimestamp, ZeroReadingsGiveZero) {
    const ptp_ext_time_t best = chosenFrom(std::vector<long long>(51, 0));
    EXPECT_EQ(0ULL, best.systemTime);
    EXPECT_EQ(0ULL, best.phcTime);
}

}  // namespace
