#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "base/Extended80.h"
#include "include/gPtpExactTime.h"
#include "timebase/BoundedTime.h"

namespace {

constexpr long long kYear2105 = 4260211200000000000LL;
constexpr long long kNone = std::numeric_limits<long long>::min();

gPtpTimeDataStruct recordWith(long double masterRate, long double phcRate) {
    gPtpTimeDataStruct record{};
    record.localTime = 1767225600000000123ULL;
    record.masterOffset = -1500000000;
    record.systemOffset = 77;
    storeExtended(record.rateRatio1, masterRate);
    storeExtended(record.rateRatio2, phcRate);
    return record;
}

gPtpTimeDataStruct boundedRecord(unsigned char state) {
    gPtpTimeDataStruct record = recordWith(1, 1);
    gPtpTimeQuality quality{};
    quality.magic = kTimeQualityMagic;
    quality.state = state;
    quality.boundNs = 100;
    quality.boundGrowthPpb = 200;
    quality.voidAfterNs = 1767225660000000000LL;
    std::memcpy(record.unused172, &quality, sizeof quality);
    return record;
}

TEST(ExactTime, IsThatOfTheAnchorAtTheAnchor) {
    const gPtpTimeDataStruct record = recordWith(1.0001L, 0.9999L);
    EXPECT_EQ(1767225601500000123LL, gPtpTimeAtSystem(&record, 1767225600000000200LL));
}

TEST(ExactTime, AdvancesByBothRatesToTheNanosecond) {
    const gPtpTimeDataStruct record = recordWith(1.0001L, 1);
    EXPECT_EQ(1767225601500000123LL + 10001,
              gPtpTimeAtSystem(&record, 1767225600000000200LL + 10000));
    EXPECT_EQ(1767225601500000123LL - 10001,
              gPtpTimeAtSystem(&record, 1767225600000000200LL - 10000));
}

TEST(ExactTime, LeadsThereAndBackWithinOneNanosecondUntil2105) {
    const gPtpTimeDataStruct record = recordWith(1 - 37e-6L, 1 + 11e-6L);
    for (long long system = 1000000007; system < kYear2105; system += kYear2105 / 997) {
        const long long back = gPtpSystemAtTime(&record, gPtpTimeAtSystem(&record, system));
        EXPECT_LE(std::llabs(back - system), 1) << system;
    }
}

TEST(ExactTime, OfARecordWithoutTimeIsNone) {
    const gPtpTimeDataStruct record{};
    EXPECT_EQ(kNone, gPtpTimeAtSystem(&record, kYear2105));
    EXPECT_EQ(kNone, gPtpSystemAtTime(&record, kYear2105));
}

TEST(BoundedTime, GrowsWithTheAge) {
    const auto record = boundedRecord(TSYN_STATE_SYNCHRONISED);
    const TSynBoundedTime time = boundedTimeAt(record, 1767225610000000200LL);
    EXPECT_EQ(static_cast<unsigned int>(TSYN_STATE_SYNCHRONISED), time.state);
    EXPECT_EQ(1767225611500000123LL, time.timeNs);
    EXPECT_EQ(time.timeNs - 2100, time.earliestNs);
    EXPECT_EQ(time.timeNs + 2100, time.latestNs);
}

TEST(BoundedTime, IsLostWhenItsWriterDied) {
    const auto record = boundedRecord(TSYN_STATE_HOLDOVER);
    const TSynBoundedTime time = boundedTimeAt(record, 1767225660000000001LL);
    EXPECT_EQ(static_cast<unsigned int>(TSYN_STATE_LOST), time.state);
    EXPECT_EQ(kNone, time.earliestNs);
    EXPECT_EQ(std::numeric_limits<long long>::max(), time.latestNs);
}

TEST(BoundedTime, IsReadFromAWholeRecordOnly) {
    gPtpTimeDataStruct shared = boundedRecord(TSYN_STATE_SYNCHRONISED);
    gPtpTimeDataStruct copy{};
    long long systemNs = 0;
    EXPECT_TRUE(readTogether(&shared, copy, systemNs));
    EXPECT_EQ(0, std::memcmp(&shared, &copy, sizeof copy));
    shared.unused172[offsetof(gPtpTimeQuality, sequence)] = 3;
    EXPECT_FALSE(readTogether(&shared, copy, systemNs));
    const gPtpTimeDataStruct deployed{};
    EXPECT_FALSE(readTogether(&deployed, copy, systemNs));
}

}  // namespace
