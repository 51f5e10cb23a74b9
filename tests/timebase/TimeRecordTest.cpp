#include "timebase/TimeRecord.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>

#include "tests/support/Hex.h"

namespace {

constexpr const char* kOneAndAHalf = "00000000000000c0ff3f";
constexpr const char* kMinusTwo = "000000000000008000c0";

constexpr LocalClock kLocal{0x1112131415161718, 0x2122232425262728, -2, 1.5L};

/** Stored digits by their offset in the record. */
using Stored = std::map<std::size_t, std::string>;

/** A record whose bytes tell their offset, so that a byte that a store leaves shows. */
gPtpTimeDataStruct numbered() {
    gPtpTimeDataStruct record;
    auto* const bytes = reinterpret_cast<unsigned char*>(&record);
    for (std::size_t i = 0; i < sizeof record; ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    return record;
}

std::string digitsOf(const gPtpTimeDataStruct& record) {
    return toHex(reinterpret_cast<const unsigned char*>(&record), sizeof record);
}

/** What a store writes into a numbered record: these digits, and nothing of the other bytes. */
void expectStored(const Stored& stored, const std::function<void(TimeRecord&)>& store) {
    gPtpTimeDataStruct record = numbered();
    std::string expected = digitsOf(record);
    for (const auto& [offset, digits] : stored) {
        expected.replace(2 * offset, digits.size(), digits);
    }
    TimeRecord published(&record);
    store(published);
    EXPECT_EQ(expected, digitsOf(record));
}

SyncSample syncSample() {
    SyncSample sample{};
    sample.sequenceId = 0x0000ABCD;
    sample.originNs = 0x3132333435363738;
    sample.correction = 0x4142434445464748;
    sample.masterNs = 0x5152535455565758;
    sample.localNs = 0x6162636465666768;
    sample.rate = -2.0L;
    sample.offset = -3;
    return sample;
}

TEST(TimeRecord, CountsAnAcceptedSyncAndNotesItsNumber) {
    expectStored({{84, "55555657"}, {104, "cdab0000"}},
                 [](TimeRecord& record) { record.countAcceptedSync(0xABCD); });
}

TEST(TimeRecord, CountsARejectedSync) {
    expectStored({{16, "11111213"}}, [](TimeRecord& record) { record.countRejectedSync(); });
}

TEST(TimeRecord, CountsAnIncompletePeerDelayExchange) {
    expectStored({{88, "59595a5b"}}, [](TimeRecord& record) { record.countIncompletePdelay(); });
}

TEST(TimeRecord, CountersWrap) {
    gPtpTimeDataStruct bytes{};
    bytes.acceptedSync = bytes.rejectedSync = bytes.incompletePdelay = 0xFFFFFFFF;
    TimeRecord record(&bytes);
    record.countAcceptedSync(0);
    record.countRejectedSync();
    record.countIncompletePdelay();
    EXPECT_EQ(0U, bytes.acceptedSync);
    EXPECT_EQ(0U, bytes.rejectedSync);
    EXPECT_EQ(0U, bytes.incompletePdelay);
}

TEST(TimeRecord, TakesASlavesSampleWithARateInRangeWhole) {
    expectStored({{20, "fdffffffffffffff"},
                  {28, "feffffffffffffff"},
                  {36, kMinusTwo},
                  {48, kOneAndAHalf},
                  {60, "6867666564636261"},
                  {68, "3837363534333231"},
                  {104, "cdab0000"}},
                 [](TimeRecord& record) { record.publishSlaveSample(syncSample(), true, kLocal); });
}

TEST(TimeRecord, KeepsRateAndOffsetWhenASlavesRateIsOutOfRange) {
    expectStored(
        {{28, "feffffffffffffff"},
         {48, kOneAndAHalf},
         {60, "6867666564636261"},
         {68, "3837363534333231"},
         {104, "cdab0000"}},
        [](TimeRecord& record) { record.publishSlaveSample(syncSample(), false, kLocal); });
}

TEST(TimeRecord, NotesTheNumberOfASentSync) {
    expectStored({{104, "cdab0000"}}, [](TimeRecord& record) { record.noteSentSync(0xABCD); });
}

TEST(TimeRecord, TakesAMastersTimeBase) {
    expectStored({{20, "0000000000000000"},
                  {28, "feffffffffffffff"},
                  {36, kMinusTwo},
                  {48, kOneAndAHalf},
                  {60, "2827262524232221"},
                  {68, "fcffffffffffffff"},
                  {76, "1817161514131211"}},
                 [](TimeRecord& record) { record.publishMasterTime(-2.0L, -4, kLocal); });
}

TEST(TimeRecord, TakesALinkDelayWithItsSign) {
    expectStored({{0, "f401000000000000"}},
                 [](TimeRecord& record) { record.publishLinkDelay(500); });
    expectStored({{0, "9cffffffffffffff"}},
                 [](TimeRecord& record) { record.publishLinkDelay(-100); });
}

TEST(TimeRecord, TakesTheTimeBaseOfAPeerDelayExchange) {
    expectStored({{108, "fbffffffffffffff"},
                  {116, "feffffffffffffff"},
                  {124, kMinusTwo},
                  {136, kOneAndAHalf},
                  {148, "7877767574737271"},
                  {156, "2827262524232221"},
                  {164, "1817161514131211"}},
                 [](TimeRecord& record) {
                     record.publishTimeBase({-2.0, -5, 0x7172737475767778}, kLocal);
                 });
}

TEST(TimeRecord, TakesAFixedDelay) {
    expectStored({{0, "f401000000000000"}}, [](TimeRecord& record) { record.useFixedDelay(500); });
    expectStored({{0, "9cffffffffffffff"}}, [](TimeRecord& record) { record.useFixedDelay(-100); });
}

TEST(TimeRecord, KeepsTheMeasuredDelayWhenNoneIsFixed) {
    expectStored({}, [](TimeRecord& record) { record.useFixedDelay(0); });
}

TEST(TimeRecord, TakesTheHostsSoftOffset) {
    expectStored({{8, "faffffffffffffff"}}, [](TimeRecord& record) { record.setSoftOffset(-6); });
}

TEST(TimeRecord, ReadsDelayOffsetAndRateFromItsPlaces) {
    gPtpTimeDataStruct bytes = numbered();
    std::memcpy(bytes.rateRatio1, fromHex(kOneAndAHalf).data(), 10);
    const TimeRecord record(&bytes);
    EXPECT_EQ(0x0706050403020100, record.linkDelay());
    EXPECT_EQ(0x0F0E0D0C0B0A0908, record.softOffset());
    EXPECT_EQ(1.5L, record.masterRate());
    EXPECT_EQ(&bytes, record.published());
}

TEST(TimeRecord, WithoutASegmentTakesNothingAndReads0) {
    TimeRecord record(nullptr);
    record.countAcceptedSync(1);
    record.countRejectedSync();
    record.publishSlaveSample(syncSample(), true, kLocal);
    record.noteSentSync(1);
    record.publishMasterTime(1.0L, 1, kLocal);
    record.publishLinkDelay(500);
    record.publishTimeBase({1.0, 1, 1}, kLocal);
    record.countIncompletePdelay();
    record.useFixedDelay(500);
    record.setSoftOffset(1);
    EXPECT_EQ(0, record.linkDelay());
    EXPECT_EQ(0, record.softOffset());
    EXPECT_EQ(0.0L, record.masterRate());
    EXPECT_EQ(nullptr, record.published());
}

}  // namespace
