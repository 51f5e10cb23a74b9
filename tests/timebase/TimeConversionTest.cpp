#include "timebase/TimeConversion.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "base/Extended80.h"
#include "tests/support/Hex.h"
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

gPtpTimeDataStruct recordWithRates(const char* masterRate, const char* systemRate) {
    gPtpTimeDataStruct record{};
    std::memcpy(record.rateRatio1, fromHex(masterRate).data(), 10);
    std::memcpy(record.rateRatio2, fromHex(systemRate).data(), 10);
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

/** A line of the record and an instant at which one rounding more or less shows. */
struct RoundedTime {
    const char* step;
    const char* masterRate;
    const char* systemRate;
    unsigned long long localTime;
    long long masterOffset;
    long long systemOffset;
    long long systemTime;
    unsigned long long result;
};

const RoundedTime kRoundedTimes[] = {
    {"the rate is rounded before the product", "f96f984782990480ff3f", "26f54ccc06db0080ff3f",
     1700000001229750091, 6670, 37000000658, 1700000039074615896, 1700000002074749440},
    {"both terms of the base are added unrounded", "d390657fa84dfffffe3f", "e364c9b9a0000280ff3f",
     1700000000792253050, 7177, 37000000912, 1700000038032022271, 1700000001032026112},
    {"the base takes the unrounded rate", "9cd09807b839f8fffe3f", "7dbf66f317fefcfffe3f",
     1700000001184399288, 5899, 37000000438, 1700000038691282909, 1700000001691193344},
    {"the product is rounded before the sum", "b66ebd85f91b0280ff3f", "a66d91eec606fbfffe3f",
     1700000000641535336, 5778, 37000000852, 1700000038200630406, 1700000001200617472},
    {"the base is rounded before the sum", "df1ce880a8240080ff3f", "f2a24485c9d8f9fffe3f",
     4434962521293356793, 2287644932864534874, 2088052098689196232, 15324885963,
     14071631000424503296U},
};

TEST(TimeConversion, RoundsWhereDeployedReadersDo) {
    for (const RoundedTime& line : kRoundedTimes) {
        gPtpTimeDataStruct record = recordWithRates(line.masterRate, line.systemRate);
        record.localTime = line.localTime;
        record.masterOffset = line.masterOffset;
        record.systemOffset = line.systemOffset;
        EXPECT_EQ(line.result, get_1AS_time(&record, line.systemTime)) << line.step;
    }
}

TEST(TimeConversion, BackToSystemTimeRoundsTimeBaseAndRateFirst) {
    gPtpTimeDataStruct record = recordWithRates("cdd288786f350080ff3f", "318ab35c152cfefffe3f");
    record.localTime = 1700000000739882045;
    record.masterOffset = 6871;
    record.systemOffset = 37000000242;
    EXPECT_EQ(1700000038324218112U, get_1AS_time_invers(&record, 1700000001324198496));
}

TEST(TimeConversion, TakesSystemTimesBefore1970) {
    gPtpTimeDataStruct record = recordWithRate(1.0L);
    record.localTime = 1000;
    record.masterOffset = -9000;
    EXPECT_EQ(4000U, get_1AS_time(&record, -5000));
    EXPECT_EQ(18446744073709546616U, get_1AS_time(&record, -14000));
}

TEST(TimeConversion, BackFromATimeWithTheTopBitIsNoNegativeTime) {
    gPtpTimeDataStruct record = recordWithRate(2.0L);
    EXPECT_EQ(4611686018427387904U, get_1AS_time_invers(&record, 9223372036854775808U));
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

/** Parameters of a core dump's time at which one rounding more or less shows. */
struct RoundedReference {
    const char* step;
    long long phcNs;
    long long masterOffset;
    long long systemOffset;
    const char* rate;
    long long cpuNs;
    unsigned long long result;
};

const RoundedReference kRoundedReferences[] = {
    {"rate and product", 2911780033059752778, 3407617584090649606, 1201227956783266572,
     "8c936f749d5ff7fffe3f", 1814720322597937, 14831929511590094336U},
    {"magnitude", 607300025417319720, 2495290562452096375, 1898559933363931076,
     "dad55880be46f5fffe3f", 1941915715498301, 17831226283787962624U},
    {"elapsed time", 1114491613645674571, 967216374253240852, 192251140845047047,
     "4b9fca2733f7f3fffe3f", 5440053561653251, 17292955570387888640U},
    {"time at zero", 1489880775338190325, 1905346135336183544, 2207241186693850239,
     "53d53efc80300580ff3f", 315311187538133, 15164817319593748480U},
    {"CPU time", 2757398151056338630, 1579108435462945129, 894156695035865788,
     "401a8844259e0180ff3f", 57640188233773402, 16030941699877855232U},
};

TEST(ReferenceTime, RoundsEveryStepToDouble) {
    for (const RoundedReference& line : kRoundedReferences) {
        EXPECT_EQ(line.result, referenceTimeNs(line.phcNs, line.masterOffset, line.systemOffset,
                                               loadExtended(fromHex(line.rate).data()), line.cpuNs))
            << line.step;
    }
}

TEST(CurrentTimeNs, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("GetCurrentTime")) {
        const gPtpTimeDataStruct record = recordOf(vector.at("record"));
        EXPECT_EQ(toS64(vector.at("out").at("time")),
                  currentTimeNs(record, toU64(vector.at("CLOCK_REALTIME"))))
            << vector.at("name");
    }
}

/** A record that was taken at system time 1,500 and PHC time 1,000. */
gPtpTimeDataStruct recordAt1000(long double masterRate, long double systemRate) {
    gPtpTimeDataStruct record{};
    storeExtended(record.rateRatio1, masterRate);
    storeExtended(record.rateRatio2, systemRate);
    record.localTime = 1000;
    record.systemOffset = 500;
    return record;
}

TEST(CurrentTimeNs, TruncatesEachProductTowardZero) {
    const gPtpTimeDataStruct record = recordAt1000(0.75L, 1.5L);
    // 3 * 1.5 is 4, and 4 * 0.75 is 3; 5 * 1.5 is 7, and 7 * 0.75 is 5.
    EXPECT_EQ(1003, currentTimeNs(record, 1503));
    EXPECT_EQ(1005, currentTimeNs(record, 1505));
    EXPECT_EQ(997, currentTimeNs(record, 1497));
    EXPECT_EQ(995, currentTimeNs(record, 1495));
}

TEST(CurrentTimeNs, KeepsEveryNanosecondOfLongProducts) {
    gPtpTimeDataStruct record = recordWithRates("71d103fe742c0480ff3f", "152acd201da2fafffe3f");
    record.localTime = 1700000000250004050;
    record.masterOffset = 4050;
    record.systemOffset = 37000000000;
    record.softOffset = 7;
    EXPECT_EQ(-1686447364625334311, currentTimeNs(record, 16760450719387514863U));
}

TEST(CurrentTimeNs, IsBehindByTheMasterOffsetAndAheadByTheSoftOffset) {
    gPtpTimeDataStruct record = recordAt1000(1.0L, 1.0L);
    record.masterOffset = 300;
    EXPECT_EQ(700, currentTimeNs(record, 1500));
    record.softOffset = 40;
    EXPECT_EQ(740, currentTimeNs(record, 1500));
    record.softOffset = -2000;
    EXPECT_EQ(-1300, currentTimeNs(record, 1500));
}

TEST(CurrentTimeNs, WrapsWhereItLeaves64Bits) {
    gPtpTimeDataStruct record = recordAt1000(1.0L, 1.0L);
    record.masterOffset = std::numeric_limits<long long>::min();
    EXPECT_EQ(std::numeric_limits<long long>::min() + 1000, currentTimeNs(record, 1500));
    record.softOffset = -1001;
    EXPECT_EQ(std::numeric_limits<long long>::max(), currentTimeNs(record, 1500));
    record.masterOffset = record.softOffset = 0;
    EXPECT_EQ(-500, currentTimeNs(record, 0)) << "the elapsed time is signed";
}

TEST(CurrentTimeNs, OfARateThatOverflowsIsTheSmallestElapsedTime) {
    const gPtpTimeDataStruct record = recordAt1000(1.0L, 1e30L);
    EXPECT_EQ(std::numeric_limits<long long>::min() + 1000, currentTimeNs(record, 1501));
}

TEST(ResponseCorrection, OfEveryVector) {
    for (const nlohmann::json& vector : vectors("pdelay_responder")) {
        gPtpTimeDataStruct record{};
        storeExtended(record.rateRatio1, fromX87(vector.at("R")));
        record.localTime = toU64(vector.at("A"));
        record.masterOffset = toS64(vector.at("B"));
        EXPECT_EQ(toS64(vector.at("correction")),
                  responseCorrectionNs(record, toU64(vector.at("tx"))))
            << vector.at("name");
    }
}

TEST(ResponseCorrection, TruncatesTheProductTowardZero) {
    const gPtpTimeDataStruct record = recordAt1000(1.5L, 7.0L);
    EXPECT_EQ(1004, responseCorrectionNs(record, 1003));
    EXPECT_EQ(996, responseCorrectionNs(record, 997)) << "left before the cross-timestamp";
}

TEST(ResponseCorrection, KeepsEveryNanosecondOfLongProducts) {
    gPtpTimeDataStruct record = recordAt1000(3.0L, 1.0L);
    EXPECT_EQ(3000000000000001000 + 3, responseCorrectionNs(record, 1000000000000000001 + 1000));
}

TEST(ResponseCorrection, IsBehindByTheMasterOffsetAlone) {
    gPtpTimeDataStruct record = recordAt1000(1.0L, 1.0L);
    record.masterOffset = 300;
    record.softOffset = 40;
    EXPECT_EQ(701, responseCorrectionNs(record, 1001));
}

TEST(ResponseCorrection, WrapsWhereItLeaves64Bits) {
    gPtpTimeDataStruct record = recordAt1000(1.0L, 1.0L);
    record.masterOffset = std::numeric_limits<long long>::min();
    EXPECT_EQ(std::numeric_limits<long long>::min() + 1001, responseCorrectionNs(record, 1001));
}

}  // namespace
