#include "ptp/SyncEstimate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

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
        EXPECT_EQ(correctionNs(toS64(vector.at("correctionField"))), toS64(vector.at("ns")))
            << vector;
    }
}

TEST(CorrectionNs, HalfANanosecondBelowZeroIsZero) {
    EXPECT_EQ(correctionNs(-32768), 0);
    EXPECT_EQ(correctionNs(-65535), 0);
    EXPECT_EQ(correctionNs(-65536), -1);
}

TEST(MasterRateRatio, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("cumulative_rate")) {
        EXPECT_EQ(toX87(masterRateRatio(vector.at("field").get<unsigned int>())),
                  vector.at("r").at("x87"))
            << vector;
    }
}

TEST(MasterRateRatio, IsExactly1WithoutAnOffset) {
    EXPECT_EQ(masterRateRatio(0), 1.0L);
}

TEST(RateRatio, OfEveryVectorAndWhetherItIsInRange) {
    for (const nlohmann::json& vector : vectors("rate_limits")) {
        if (vector.contains("limits")) {
            continue;
        }
        const long double ratio = rateRatio(toU64(vector.at("A0")), toU64(vector.at("A1")),
                                            toU64(vector.at("B0")), toU64(vector.at("B1")));
        EXPECT_EQ(toX87(ratio), vector.at("q").at("x87")) << vector;
        EXPECT_EQ(isRateInRange(ratio), vector.at("inRange").get<bool>()) << vector;
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
    EXPECT_EQ(found, 1);
}

TEST(RateRatio, OfNoTimeAtAllIsOutOfRange) {
    EXPECT_FALSE(isRateInRange(rateRatio(5, 5, 7, 7)));
    EXPECT_FALSE(isRateInRange(rateRatio(6, 5, 7, 7)));
    EXPECT_FALSE(isRateInRange(std::numeric_limits<long double>::quiet_NaN()));
}

TEST(RateRatio, ReadsNegativeDifferencesAsUnsigned) {
    EXPECT_EQ(rateRatio(0, 1, 1, 0), 18446744073709551615.0L);
    EXPECT_EQ(rateRatio(0, 2, 0, 2), 1.0L);
}

TEST(TotalCorrection, OfANegativeFixedDelayLeavesTheSignedRange) {
    for (const nlohmann::json& vector : vectors("negative_fixed_delay")) {
        const auto delay = static_cast<unsigned long long>(toS64(vector.at("field0")));
        EXPECT_EQ(delay, toU64(vector.at("D")));
        EXPECT_EQ(totalCorrectionNs(0, 1, delay, 1), toS64(vector.at("C")));
    }
}

TEST(TotalCorrection, IsTruncatedOnceAtTheEnd) {
    EXPECT_EQ(totalCorrectionNs(1, 1.0L, 3, 0.5L), 2);
    EXPECT_EQ(totalCorrectionNs(-3, 1.0L, 1, 0.5L), -2);
    EXPECT_EQ(totalCorrectionNs(-1, 1.0L, 1, 0.5L), 0);
}

TEST(ReferenceTime, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("reference_pair")) {
        EXPECT_EQ(referenceTime(toS64(vector.at("P")), toS64(vector.at("O")), toS64(vector.at("S")),
                                fromX87(vector.at("K")), toS64(vector.at("U"))),
                  toU64(vector.at("R")))
            << vector;
    }
}

TEST(ReferenceTime, SetsTheTopBitFrom2ToThe63On) {
    constexpr long long kLargest = std::numeric_limits<long long>::max();
    EXPECT_EQ(referenceTime(kLargest, -1, 0, 0.0L, 0), 0x8000000000000000ULL);
    EXPECT_EQ(referenceTime(0, 0, -4096, 1.0L, kLargest), 0x8000000000001000ULL);
}

TEST(ReferenceTime, TakesTheMagnitudeOfPhcTimeLessOffset) {
    EXPECT_EQ(referenceTime(1000, 4000, -1000, 1.0L, 5), 3005U);
}

}  // namespace
