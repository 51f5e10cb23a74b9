#include "timebase/TimeConversion.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "base/Extended80.h"
#include "tests/support/Vectors.h"

namespace {

constexpr unsigned long long kNoTime = 0x8000000000000000ULL;

gPtpTimeDataStruct recordOf(const nlohmann::json& digits) {
    const std::vector<unsigned char> bytes = fromHex(digits.get<std::string>());
    gPtpTimeDataStruct record{};
    EXPECT_EQ(sizeof record, bytes.size());
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

gPtpTimeDataStruct recordWithRate(long double rate) {
    gPtpTimeDataStruct record{};
    storeExtended(record.rateRatio1, rate);
    storeExtended(record.rateRatio2, 1.0L);
    return record;
}

TEST(TimeConversion, ToGrandmasterTimeOfEveryVector) {
    for (const nlohmann::json& vector : vectors("as_time_conversion")) {
        gPtpTimeDataStruct record = recordOf(vector.at("record"));
        for (const nlohmann::json& value : vector.at("get_1AS_time")) {
            EXPECT_EQ(toU64(value.at("result")), get_1AS_time(&record, toS64(value.at("t"))))
                << vector.at("name") << ' ' << value;
        }
    }
}

TEST(TimeConversion, ToSystemTimeOfEveryVector) {
    for (const nlohmann::json& vector : vectors("as_time_conversion")) {
        gPtpTimeDataStruct record = recordOf(vector.at("record"));
        for (const nlohmann::json& value : vector.at("get_1AS_time_invers")) {
            EXPECT_EQ(toU64(value.at("result")), get_1AS_time_invers(&record, toU64(value.at("T"))))
                << vector.at("name") << ' ' << value;
        }
    }
}

TEST(TimeConversion, OfAnEmptyRecordIs0AndDividesByZero) {
    gPtpTimeDataStruct record{};
    EXPECT_EQ(0U, get_1AS_time(&record, 0));
    EXPECT_EQ(0U, get_1AS_time(&record, 1700000000000000000));
    EXPECT_EQ(kNoTime, get_1AS_time_invers(&record, 0));
    EXPECT_EQ(kNoTime, get_1AS_time_invers(&record, 5000));
}

TEST(TimeConversion, WithRate1ReadsTheSameTimeBothWays) {
    gPtpTimeDataStruct record = recordWithRate(1.0L);
    record.localTime = 1000;
    EXPECT_EQ(5000U, get_1AS_time(&record, 5000));
    EXPECT_EQ(5000U, get_1AS_time_invers(&record, 5000));
}

TEST(TimeConversion, TakesTheMagnitudeOfANegativeLocalTimeLessOffset) {
    gPtpTimeDataStruct record = recordWithRate(1.0L);
    record.localTime = 1000;
    record.masterOffset = 4000;
    EXPECT_EQ(3000U, get_1AS_time(&record, 1000));
}

TEST(TimeConversion, MultipliesBothRates) {
    gPtpTimeDataStruct record = recordWithRate(2.0L);
    storeExtended(record.rateRatio2, 1.5L);
    EXPECT_EQ(300U, get_1AS_time(&record, 100));
    EXPECT_EQ(100U, get_1AS_time_invers(&record, 300));
}

TEST(TimeConversion, OfARateThatIsNoNumberIsNoTime) {
    gPtpTimeDataStruct record = recordWithRate(1.0L);
    std::memcpy(record.rateRatio1, fromHex("00000000000000c0ff7f").data(), 10);
    EXPECT_EQ(kNoTime, get_1AS_time(&record, 5000));
    EXPECT_EQ(kNoTime, get_1AS_time_invers(&record, 5000));
}

TEST(TimeConversion, ReadsTenBytesOfARateOnly) {
    gPtpTimeDataStruct record = recordWithRate(1.0L);
    record.rateRatio1[10] = 0xFF;
    record.rateRatio2[11] = 0xFF;
    EXPECT_EQ(5000U, get_1AS_time(&record, 5000));
}

TEST(ReferenceTime, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("reference_pair")) {
        EXPECT_EQ(
            toU64(vector.at("R")),
            referenceTimeNs(toS64(vector.at("P")), toS64(vector.at("O")), toS64(vector.at("S")),
                            fromX87(vector.at("K")), toS64(vector.at("U"))))
            << vector;
    }
}

TEST(ReferenceTime, SetsTheTopBitFrom2ToThe63On) {
    constexpr long long kLargest = std::numeric_limits<long long>::max();
    EXPECT_EQ(0x8000000000000000ULL, referenceTimeNs(kLargest, -1, 0, 0.0L, 0));
    EXPECT_EQ(0x8000000000001000ULL, referenceTimeNs(0, 0, -4096, 1.0L, kLargest));
}

TEST(ReferenceTime, TakesTheMagnitudeOfPhcTimeLessOffset) {
    EXPECT_EQ(3005U, referenceTimeNs(1000, 4000, -1000, 1.0L, 5));
}

}  // namespace
