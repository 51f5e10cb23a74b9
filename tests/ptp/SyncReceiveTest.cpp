#include "base/Extended80.h"
#include "ptp/ReferenceRecord.h"
#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "tests/support/Vectors.h"
#include "timebase/osipc.h"

namespace {

class SyncReceive : public Handlers {};

class SyncChecks : public Handlers {
protected:
    /** What a Sync with one byte changed prints while it is refused. */
    std::string refuse(std::size_t offset, unsigned char value) {
        std::vector<unsigned char> message = syncMessage(1);
        message.at(offset) = value;
        return refuse(message);
    }

    std::string refuse(const std::vector<unsigned char>& message) {
        std::string output = printedBy([&] { EXPECT_EQ(0U, handle(message, 1000)); });
        EXPECT_EQ(1U, valueOf(record.rejectedSync));
        EXPECT_EQ(0U, valueOf(record.acceptedSync));
        EXPECT_TRUE(clockItems.empty());
        return output;
    }

    static void expectRefusal(const std::string& output, const std::string& text) {
        expectError(output, "processIncoming", text);
    }
};

TEST_F(SyncChecks, TransportBitComesBeforeTheVersion) {
    std::vector<unsigned char> message = syncMessage(1);
    message[0] = 0x00;
    message[1] = 0x07;
    expectRefusal(refuse(message), "Wrong transport specific bit 0x0 ...");
}

TEST_F(SyncChecks, VersionIsTheWholeByte) {
    expectRefusal(refuse(1, 0x12), "Wrong PTP version 18 ...");
}

TEST_F(SyncChecks, VersionComesBeforeTheLength) {
    std::vector<unsigned char> message = syncMessage(1);
    message[1] = 1;
    message[3] = 43;
    expectRefusal(refuse(message), "Wrong PTP version 1 ...");
}

TEST_F(SyncChecks, LengthBelow44) {
    expectRefusal(refuse(3, 43), "Wrong message length 43 ...");
}

TEST_F(SyncChecks, LengthComesBeforeTheControl) {
    std::vector<unsigned char> message = syncMessage(1);
    message[3] = 40;
    message[32] = 2;
    expectRefusal(refuse(message), "Wrong message length 40 ...");
}

TEST_F(SyncChecks, ControlOtherThan0) {
    expectRefusal(refuse(32, 0xFF), "Wrong control 0xff ...");
}

TEST_F(SyncChecks, ControlComesBeforeTheDomain) {
    std::vector<unsigned char> message = syncMessage(1);
    message[32] = 1;
    message[4] = 16;
    expectRefusal(refuse(message), "Wrong control 0x1 ...");
}

TEST_F(SyncChecks, DomainAbove15) {
    expectRefusal(refuse(4, 16), "Invalid domain number received:16 ...");
}

TEST_F(SyncChecks, ForeignDomainCountsAsRejectedWithoutALogLine) {
    block.cfg.Domain = 1;
    EXPECT_EQ("", refuse(4, 0));
}

TEST_F(SyncReceive, TakesAnyTransportThatHasTheBit) {
    std::vector<unsigned char> message = syncMessage(1);
    message[0] = 0xF0;
    EXPECT_EQ(1U, handleWithExtTime(message, 1000));
}

TEST_F(SyncReceive, MastersIgnoreItWithoutCounting) {
    block.cfg.role = 1;
    const std::string before = image(record);
    EXPECT_EQ(0U, handle(syncMessage(1), 1000));
    EXPECT_EQ(before, image(record));
    EXPECT_TRUE(clockItems.empty());
}

TEST_F(SyncReceive, MakesTheSharedRecordOfAMasterToo) {
    block.cfg.role = 1;
    OSipc::map.clear();
    printedBy([&] { EXPECT_EQ(0U, handle(syncMessage(1), 1000)); });
    EXPECT_EQ(1U, OSipc::map.count(kInterface));
}

TEST_F(SyncReceive, StoresReceiveTimeAndSequenceId) {
    block.cfg.Domain = 15;
    std::vector<unsigned char> message = syncMessage(0xFEDC);
    message[4] = 15;
    EXPECT_EQ(1U, handleWithExtTime(message, 1700000000000001550ULL));
    const ClockItemMembersType& item = clockItems.at(kPortKey);
    EXPECT_EQ(1700000000000001550ULL, valueOf(item.syncReceiveTime.ns));
    EXPECT_EQ(1700000000000001550ULL, valueOf(item.localTimes.entries[0].ns));
    EXPECT_EQ(0xFEDC, item.syncSequenceId);
    EXPECT_EQ(0xFEDCU, valueOf(record.sequenceId));
    EXPECT_EQ(1U, valueOf(record.acceptedSync));
    EXPECT_EQ(0U, valueOf(record.rejectedSync));
}

TEST_F(SyncReceive, ClearsTheOriginTimeOfTheLastFollowUp) {
    clockItemOf(kPortKey).originTime.ns = 5;
    clockItemOf(kPortKey).masterTimes.entries[0].ns = 6;
    clockItemOf(kPortKey).masterTimes.entries[1].ns = 7;
    handleWithExtTime(syncMessage(1), 1000);
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).originTime.ns));
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).masterTimes.entries[0].ns));
    EXPECT_EQ(7U, valueOf(clockItemOf(kPortKey).masterTimes.entries[1].ns));
}

/** One Sync and Follow_Up of a vector and what they leave behind. */
class SlaveSequence : public Handlers {
protected:
    /** P, S and G stand in the vector; without them the other clock is read as of the Sync. */
    void prepareLocalClock(const nlohmann::json& pair) {
        constexpr long long kSystemOffset = 37000000000;
        constexpr long long kReadLater = 3000000;
        const bool given = pair.contains("P");
        const long long phc = given ? toS64(pair.at("P")) : toS64(pair.at("t2")) + kReadLater;
        const long long offset = given ? toS64(pair.at("S")) : kSystemOffset;
        platform().capabilities = {
            {phc + offset, phc, offset, given ? fromX87(pair.at("G")) : 1.0L}};
    }

    std::vector<unsigned char> followUpOf(const nlohmann::json& pair) {
        std::vector<unsigned char> message =
            followUpMessage(pair.at("sequenceId"), toU64(pair.at("t1")));
        if (pair.contains("correctionField")) {
            setField(message, 8, 8,
                     static_cast<unsigned long long>(toS64(pair.at("correctionField"))));
            setField(message, 54, 4, pair.at("cumulativeScaledRateOffset").get<unsigned int>());
        }
        return message;
    }

    /** Returns what is printed. */
    std::string play(const nlohmann::json& pair) {
        if (pair.contains("record0 before")) {
            record.linkDelay = toS64(pair.at("record0 before"));
        }
        if (pair.at("out").at("stage") == "computed") {
            prepareLocalClock(pair);
        }
        return printedBy([&] {
            EXPECT_EQ(1U,
                      handleWithExtTime(syncMessage(pair.at("sequenceId")), toU64(pair.at("t2"))));
            EXPECT_EQ(1U, handleWithExtTime(followUpOf(pair)));
        });
    }

    void expectHistory(const TimestampHistory& history, const nlohmann::json& expected) {
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(toU64(expected[i]), valueOf(history.entries[i].ns)) << i;
        }
    }

    void expectOutcome(const nlohmann::json& pair, const std::string& output) {
        const nlohmann::json& out = pair.at("out");
        EXPECT_EQ(toU64(pair.at("t1")), valueOf(clockItemOf(kPortKey).originTime.ns)) << pair;
        if (out.at("stage") == "computed") {
            EXPECT_EQ(out.at("recordImage"), image(record)) << pair;
            EXPECT_EQ(out.at("inRange").get<bool>() ? 0 : 1,
                      occurrences(output, "frequency offset out of range ... "))
                << pair;
            EXPECT_EQ(toU64(out.at("M")), valueOf(clockItemOf(kPortKey).masterTimes.entries[0].ns))
                << pair;
        }
        if (pair.contains("A")) {
            expectHistory(clockItemOf(kPortKey).masterTimes, pair.at("A"));
            expectHistory(clockItemOf(kPortKey).localTimes, pair.at("B"));
        }
    }
};

TEST_F(SlaveSequence, PublishesWhatEveryVectorTells) {
    for (const nlohmann::json& pair : vectors("slave_sequence")) {
        expectOutcome(pair, play(pair));
    }
}

TEST_F(SlaveSequence, OfClocksWithDifferentEpochsIsUsefulFromTheThirdPairOn) {
    for (const nlohmann::json& pair : vectors("slave_sequence_other_epoch")) {
        expectOutcome(pair, play(pair));
    }
}

TEST_F(SlaveSequence, FirstPairOnlyPrimes) {
    const nlohmann::json& first = vectors("slave_sequence").at(0);
    EXPECT_EQ(0U, clockItemOf(kPortKey).initialised);
    play(first);
    EXPECT_EQ(1U, clockItemOf(kPortKey).initialised);
    EXPECT_EQ(toU64(first.at("t1")), valueOf(clockItemOf(kPortKey).originTime.ns));
    EXPECT_EQ(0U, valueOf(record.originTime));
    EXPECT_EQ(0U, valueOf(record.localTime));
    EXPECT_EQ(1U, valueOf(record.acceptedSync));
}

TEST_F(SlaveSequence, OutOfRangeLineNamesMasterTimeLocalTimeCorrectionAndRatio) {
    const nlohmann::json& pairs = vectors("slave_sequence_other_epoch");
    play(pairs.at(0));
    const std::string output = play(pairs.at(1));
    EXPECT_EQ(1, occurrences(output, "[ERROR] "));
    EXPECT_EQ(1, occurrences(output,
                             ">frequency offset out of range ... t1: 1700000000125000000 t2: "
                             "5125000000 correction: 0 ml_freqoffset: 331707317.097561 \n"));
}

/** A primed port whose last pair was master time 1 s at local time 2 s. */
class ReferencePair : public Handlers {
protected:
    ReferencePair() {
        ClockItemMembersType& item = clockItemOf(kPortKey);
        item.initialised = 1;
        item.masterTimes.entries[1].ns = 1000000000;
        item.localTimes.entries[1].ns = 2000000000;
    }

    /** A pair 125 ms later by the local clock. */
    void play(unsigned long long t1, const timespec& cpuTime) {
        platform().clocks[CLOCK_PROCESS_CPUTIME_ID] = cpuTime;
        platform().capabilities = {{2500000000, 2200000000, 300000000, 0.25L}};
        printedBy([&] {
            handleWithExtTime(syncMessage(1), 2125000000);
            handleWithExtTime(followUpMessage(1, t1));
        });
    }
};

TEST_F(ReferencePair, IsTheMasterTimeThatCpuTimeZeroMapsTo) {
    // Offset 1000000000 ns and rates 1 and 0.25: 1.2 s - 2.5 s / 4 + 0.5 s / 4.
    play(1125000000, {0, 500000000});
    EXPECT_EQ(700000000U, referenceRecord.hardwareTime[0]);
    EXPECT_EQ(500000000U, referenceRecord.cpuTime[0]);
    EXPECT_EQ(0U, referenceRecord.hardwareTime[1]);
    EXPECT_EQ(0U, referenceRecord.cpuTime[1]);
}

TEST_F(ReferencePair, OfASampleOutOfRangeCountsItsRateToo) {
    // Twice the rate; offset 875000000 ns: 1.325 s - 2.5 s / 2 + 0.1 s / 2.
    play(1250000000, {0, 100000000});
    EXPECT_EQ(125000000U, referenceRecord.hardwareTime[0]);
    EXPECT_EQ(0.0L, loadExtended(record.rateRatio1));
}

TEST_F(ReferencePair, ReadsCpuTimesFrom2147483648NsOnAsNegative) {
    play(1125000000, {2, 147483648});
    EXPECT_EQ(0xFFFFFFFF80000000ULL, referenceRecord.cpuTime[0]);
    EXPECT_EQ(575000000U - 536870912U, referenceRecord.hardwareTime[0]);
}

TEST_F(SlaveSequence, ARepeatedFollowUpLeavesRateAndOffset) {
    const nlohmann::json& pairs = vectors("slave_sequence");
    const nlohmann::json& expected = vectors("duplicate_follow_up").at(0);
    for (int i = 0; i < 3; ++i) {
        play(pairs.at(i));
    }
    prepareLocalClock(pairs.at(2));
    const std::string output =
        printedBy([&] { EXPECT_EQ(1U, handleWithExtTime(followUpOf(pairs.at(2)))); });
    EXPECT_EQ(1, occurrences(output, "frequency offset out of range ... "));
    const nlohmann::json& kept = expected.at("after three pairs");
    EXPECT_EQ(kept.at("record36").at("x87"), toHex(record.rateRatio1, 10));
    EXPECT_EQ(toS64(kept.at("record20")), valueOf(record.masterOffset));
}

TEST_F(SlaveSequence, ANegativeFixedDelayGivesTheMasterTimeOfItsVector) {
    const nlohmann::json& vector = vectors("negative_fixed_delay").at(0);
    clockItemOf(kPortKey).initialised = 1;
    record.linkDelay = toS64(vector.at("field0"));
    handleWithExtTime(syncMessage(1), 1700000000000001550ULL);
    platform().capabilities = {{}};
    printedBy([&] { handleWithExtTime(followUpMessage(1, toU64(vector.at("t1")))); });
    EXPECT_EQ(toU64(vector.at("M")), valueOf(clockItemOf(kPortKey).masterTimes.entries[0].ns));
}

TEST_F(SlaveSequence, ShiftsTheSpareHistoryToo) {
    clockItemOf(kPortKey).initialised = 1;
    clockItemOf(kPortKey).spareTimes.entries[0].ns = 11;
    clockItemOf(kPortKey).spareTimes.entries[6].ns = 66;
    handleWithExtTime(syncMessage(1), 1000);
    platform().capabilities = {{}};
    printedBy([&] { handleWithExtTime(followUpMessage(1, 1000)); });
    EXPECT_EQ(11U, valueOf(clockItemOf(kPortKey).spareTimes.entries[1].ns));
    EXPECT_EQ(66U, valueOf(clockItemOf(kPortKey).spareTimes.entries[7].ns));
}

class FollowUpReceive : public Handlers {};

TEST_F(FollowUpReceive, OfAnotherSequenceIdLeavesAllTimes) {
    handleWithExtTime(syncMessage(7), 1000);
    const std::string before = image(record);
    EXPECT_EQ(1U, handleWithExtTime(followUpMessage(8, 5000)));
    EXPECT_EQ(before, image(record));
    const ClockItemMembersType& item = clockItems.at(kPortKey);
    EXPECT_EQ(0U, valueOf(item.originTime.ns));
    EXPECT_EQ(0U, valueOf(item.masterTimes.entries[0].ns));
    EXPECT_EQ(1000U, valueOf(item.localTimes.entries[0].ns));
    EXPECT_EQ(0U, item.initialised);
}

TEST_F(FollowUpReceive, WithoutASyncLeavesAllTimes) {
    EXPECT_EQ(1U, handleWithExtTime(followUpMessage(0xFFFF, 5000)));
    EXPECT_EQ(0U, valueOf(clockItems.at(kPortKey).originTime.ns));
    EXPECT_EQ(std::string(472, '0'), image(record));
}

TEST_F(FollowUpReceive, NotesTheMillisecondOfItsArrival) {
    platform().clocks[CLOCK_REALTIME] = {1700000000, 999999999};
    handleWithExtTime(followUpMessage(1, 5000));
    EXPECT_EQ(999, clockItemOf(kPortKey).arrivalMark);
}

TEST_F(FollowUpReceive, OnAMasterFindsNoSyncAndStops) {
    block.cfg.role = 1;
    handle(syncMessage(1), 1000);
    EXPECT_EQ(1U, handleWithExtTime(followUpMessage(1, 5000)));
    EXPECT_EQ(std::string(472, '0'), image(record));
}

TEST_F(FollowUpReceive, MastersAreKeptApart) {
    handleWithExtTime(syncMessage(1), 1000);
    std::vector<unsigned char> other = followUpMessage(1, 5000);
    setField(other, 28, 2, 4);
    handleWithExtTime(other);
    EXPECT_EQ(2U, clockItems.size());
    EXPECT_EQ(0U, clockItems.at(kPortKey).initialised);
    EXPECT_EQ(0U, clockItems.at(PortKey(kPortKey.first, 4)).initialised);
}

}  // namespace
