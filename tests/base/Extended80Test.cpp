#include "base/Extended80.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr long long kSmallest = std::numeric_limits<long long>::min();
constexpr unsigned long long kIndefinite = 0x8000000000000000ULL;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

TEST(Extended80, StoresTenBytesAndLeavesTheRest) {
    unsigned char storage[kExtendedStorage];
    std::fill(std::begin(storage), std::end(storage), 0xA5);
    storeExtended(storage, 1.0L);
    const unsigned char one[] = {0, 0, 0, 0, 0, 0, 0, 0x80, 0xFF, 0x3F, 0xA5, 0xA5};
    EXPECT_TRUE(std::equal(std::begin(one), std::end(one), storage));
}

TEST(Extended80, LoadsTenBytesWhateverFollows) {
    const unsigned char minusTwo[] = {0, 0, 0, 0, 0, 0, 0, 0x80, 0x00, 0xC0, 0xFF, 0xFF};
    EXPECT_EQ(-2.0L, loadExtended(minusTwo));
}

TEST(Extended80, KeepsAll64SignificandBits) {
    unsigned char storage[kExtendedStorage] = {};
    const long double value = 1.0L + LDBL_EPSILON;
    storeExtended(storage, value);
    EXPECT_EQ(value, loadExtended(storage));
    EXPECT_EQ(0x01, storage[0]);
}

TEST(Extended80, UnsignedDifferenceReadsNegativeAsHuge) {
    EXPECT_EQ(5.0L, unsignedDiff(8, 3));
    EXPECT_EQ(18446744073709551615.0L, unsignedDiff(3, 4));
}

TEST(Extended80, SignedDifferenceWraps) {
    EXPECT_EQ(-1, signedDiff(3, 4));
    EXPECT_EQ(kSmallest, signedDiff(kIndefinite, 0));
}

TEST(Extended80, ToS64TruncatesTowardZero) {
    EXPECT_EQ(2, toS64(2.9L));
    EXPECT_EQ(-2, toS64(-2.9L));
}

TEST(Extended80, ToS64GivesTheSmallestForWhatDoesNotFit) {
    EXPECT_EQ(9223372036854775807LL, toS64(9223372036854775807.0L));
    EXPECT_EQ(kSmallest, toS64(9223372036854775808.0L));
    EXPECT_EQ(kSmallest, toS64(-9223372036854775808.0L));
    EXPECT_EQ(kSmallest, toS64(-9223372036854777856.0L));
    EXPECT_EQ(kSmallest, toS64(static_cast<long double>(kNan)));
}

TEST(Extended80, DoubleToU64CoversTheUpperHalf) {
    EXPECT_EQ(3ULL, doubleToU64(3.99));
    EXPECT_EQ(kIndefinite, doubleToU64(9223372036854775808.0));
    EXPECT_EQ(18446744073709549568ULL, doubleToU64(18446744073709549568.0));
}

TEST(Extended80, DoubleToU64GivesNegativesInTwosComplement) {
    EXPECT_EQ(18446744073709551614ULL, doubleToU64(-2.5));
}

TEST(Extended80, DoubleToU64GivesTheTopBitForWhatDoesNotFit) {
    for (const double value : {kInfinity, -kInfinity, kNan, 18446744073709551616.0, 1e300}) {
        EXPECT_EQ(kIndefinite, doubleToU64(value)) << value;
    }
}

}  // namespace
