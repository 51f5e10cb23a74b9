#include "ptp/SyncEstimate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"

namespace {

double fromDoubleBytes(const nlohmann::json& digits) {
    const std::vector<unsigned char> bytes = fromHex(digits.get<std::string>());
    double value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

TEST(CorrectionNs, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("correction_field")) {
        EXPECT_EQ(toS64(vector.at("ns")), correctionNs(toS64(vector.at("correctionField"))))
            << vector;
    }
}

TEST(CorrectionNs, HalfANanosecondBelowZeroIsZero) {
    EXPECT_EQ(0, correctionNs(-32768));
    EXPECT_EQ(0, correctionNs(-65535));
    EXPECT_EQ(-1, correctionNs(-65536));
}

TEST(MasterRateRatio, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("cumulative_rate")) {
        EXPECT_EQ(vector.at("r").at("x87"),
                  toX87(masterRateRatio(vector.at("field").get<unsigned int>())))
            << vector;
    }
}

TEST(MasterRateRatio, IsExactly1WithoutAnOffset) {
    EXPECT_EQ(1.0L, masterRateRatio(0));
}

TEST(RateRatio, OfEveryVectorAndWhetherItIsInRange) {
    for (const nlohmann::json& vector : vectors("rate_limits")) {
        if (vector.contains("limits")) {
            continue;
        }
        const long double ratio = rateRatio(toU64(vector.at("A0")), toU64(vector.at("A1")),
                                            toU64(vector.at("B0")), toU64(vector.at("B1")));
        EXPECT_EQ(vector.at("q").at("x87"), toX87(ratio)) << vector;
        EXPECT_EQ(vector.at("inRange").get<bool>(), isRateInRange(ratio)) << vector;
    }
}

TEST(RateRatio, LimitsAreDoublesComparedInExtendedPrecision) {
    int found = 0;
    for (const nlohmann::json& vector : vectors("rate_limits")) {
        if (!vector.contains("limits")) {
            continue;
        }
        ++found;
        const long double high = fromDoubleBytes(vector.at("limits").at("high"));
        const long double low = fromDoubleBytes(vector.at("limits").at("low"));
        EXPECT_TRUE(isRateInRange(high));
        EXPECT_FALSE(isRateInRange(std::nextafter(high, 2.0L)));
        EXPECT_TRUE(isRateInRange(low));
        EXPECT_FALSE(isRateInRange(std::nextafter(low, 0.0L)));
    }
    EXPECT_EQ(1, found);
}

TEST(RateRatio, OfNoTimeAtAllIsOutOfRange) {
    EXPECT_FALSE(isRateInRange(rateRatio(5, 5, 7, 7)));
    EXPECT_FALSE(isRateInRange(rateRatio(6, 5, 7, 7)));
    EXPECT_FALSE(isRateInRange(std::numeric_limits<long double>::quiet_NaN()));
}

TEST(RateRatio, ReadsNegativeDifferencesAsUnsigned) {
    EXPECT_EQ(18446744073709551615.0L, rateRatio(0, 1, 1, 0));
    EXPECT_EQ(1.0L, rateRatio(0, 2, 0, 2));
}

TEST(TotalCorrection, OfANegativeFixedDelayLeavesTheSignedRange) {
    for (const nlohmann::json& vector : vectors("negative_fixed_delay")) {
        const auto delay = static_cast<unsigned long long>(toS64(vector.at("field0")));
        EXPECT_EQ(toU64(vector.at("D")), delay);
        EXPECT_EQ(toS64(vector.at("C")), totalCorrectionNs(0, 1, delay, 1));
    }
}

TEST(TotalCorrection, IsTruncatedOnceAtTheEnd) {
    EXPECT_EQ(2, totalCorrectionNs(1, 1.0L, 3, 0.5L));
    EXPECT_EQ(-2, totalCorrectionNs(-3, 1.0L, 1, 0.5L));
    EXPECT_EQ(0, totalCorrectionNs(-1, 1.0L, 1, 0.5L));
}

}  // namespace
