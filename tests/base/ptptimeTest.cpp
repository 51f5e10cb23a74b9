#include "base/ptptime.h"

#include <gtest/gtest.h>

namespace {

timespec timeOf(time_t seconds, long nanoseconds) {
    timespec time{};
    time.tv_sec = seconds;
    time.tv_nsec = nanoseconds;
    return time;
}

TEST(PtpTime, WidensSecondsBeforeMultiplying) {
    EXPECT_EQ(1700000000000000005ULL, toNs(timeOf(1700000000, 5)));
    EXPECT_EQ(2147483647999999999ULL, toNs(timeOf(2147483647, 999999999)));
}

TEST(PtpTime, NegativeTimespecIsNegativeNanoseconds) {
    EXPECT_EQ(-5, static_cast<long long>(toNs(timeOf(-1, 999999995))));
}

TEST(PtpTime, FortyEightBitSecondsWrapModulo64Bits) {
    EXPECT_EQ(18446744073709551615ULL, toNs(18446744073ULL, 709551615ULL));
    EXPECT_EQ(0ULL, toNs(18446744073ULL, 709551616ULL));
}

TEST(PtpTime, SplitsNanosecondsIntoATimestamp) {
    const ptp_time_t time = toPtpTime(1700000000987654321ULL);
    EXPECT_EQ(1700000000ULL, time.seconds);
    EXPECT_EQ(987654321U, time.nanoseconds);
    EXPECT_EQ(1700000000987654321ULL, toNs(time));
}

TEST(PtpTime, SplitsTheLargestValue) {
    const ptp_time_t time = toPtpTime(18446744073709551615ULL);
    EXPECT_EQ(18446744073ULL, time.seconds);
    EXPECT_EQ(709551615U, time.nanoseconds);
}

TEST(PtpTime, CpuTimeWrapsAtSigned32Bits) {
    EXPECT_EQ(2147483647, wrappedCpuTimeNs(timeOf(2, 147483647)));
    EXPECT_EQ(-2147483648LL, wrappedCpuTimeNs(timeOf(2, 147483648)));
    EXPECT_EQ(705032704, wrappedCpuTimeNs(timeOf(5, 0)));
}

}  // namespace
