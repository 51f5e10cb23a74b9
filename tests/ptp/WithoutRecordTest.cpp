#include <cerrno>
#include <cstring>

#include "ptp/ReferenceRecord.h"
#include "tests/ptp/PdelayExchange.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "timebase/osipc.h"

namespace {

/** The shared segment cannot be had: its name is longer than the system takes. */
class WithoutRecord : public PdelayExchange {
protected:
    WithoutRecord() {
        OSipc::map.clear();
        shm_name = "/" + std::string(300, 'x');
    }

    ~WithoutRecord() override {
        EXPECT_LE(1, errors_.count("shm_open: ")) << "the segment was there after all";
        EXPECT_TRUE(OSipc::map.empty());
    }

private:
    StdoutCapture errors_{2};
};

TEST_F(WithoutRecord, ASyncIsAccepted) {
    printedBy([&] { EXPECT_EQ(1U, handleWithExtTime(syncMessage(7), 1000)); });
    const ClockItemMembersType& item = clockItems.at(kPortKey);
    EXPECT_EQ(7, item.syncSequenceId);
    EXPECT_EQ(1000U, valueOf(item.syncReceiveTime.ns));
    EXPECT_EQ(1000U, valueOf(item.localTimes.entries[0].ns));
}

TEST_F(WithoutRecord, ASyncIsRefusedWithItsLine) {
    std::vector<unsigned char> message = syncMessage(7);
    message[1] = 1;
    const std::string output = printedBy([&] { EXPECT_EQ(0U, handle(message)); });
    EXPECT_EQ(1, occurrences(output, "Wrong PTP version 1 ...\n"));
}

TEST_F(WithoutRecord, TheFirstPairPrimes) {
    printedBy([&] {
        handleWithExtTime(syncMessage(7), 2000000000);
        EXPECT_EQ(1U, handleWithExtTime(followUpMessage(7, 1000000000)));
    });
    const ClockItemMembersType& item = clockItems.at(kPortKey);
    EXPECT_EQ(1U, item.initialised);
    EXPECT_EQ(1000000000U, valueOf(item.originTime.ns));
    EXPECT_EQ(1000000000U, valueOf(item.masterTimes.entries[0].ns));
}

TEST_F(WithoutRecord, LaterPairsShiftTheHistoriesAndNoteTheReferencePair) {
    ClockItemMembersType& item = clockItemOf(kPortKey);
    item.initialised = 1;
    item.spareTimes.entries[0].ns = 11;
    platform().capabilities = {{2500000000, 2200000000, 300000000, 1}};
    printedBy([&] {
        handleWithExtTime(syncMessage(7), 2000000000);
        EXPECT_EQ(1U, handleWithExtTime(followUpMessage(7, 1000000000)));
    });
    EXPECT_EQ(1000000000U, valueOf(item.masterTimes.entries[1].ns));
    EXPECT_EQ(2000000000U, valueOf(item.localTimes.entries[1].ns));
    EXPECT_EQ(11U, valueOf(item.spareTimes.entries[1].ns));
    EXPECT_NE(0U, referenceRecord.hardwareTime[0]);
}

TEST_F(WithoutRecord, ARateOutOfRangeIsReported) {
    clockItemOf(kPortKey).initialised = 1;
    platform().capabilities = {{}};
    const std::string output = printedBy([&] {
        handleWithExtTime(syncMessage(7), 2000000000);
        handleWithExtTime(followUpMessage(7, 1000000000));
    });
    EXPECT_EQ(1, occurrences(output,
                             "frequency offset out of range ... t1: 1000000000 t2: 2000000000 "
                             "correction: 0 ml_freqoffset: 0.500000 \n"));
}

TEST_F(WithoutRecord, APeerDelayIsMeasuredAndLogged) {
    PTPMsgPathDelayReq message(0, kPort);
    const std::string output =
        exchange(message, {1000000000000, 5000000000500, 5000000100500, 1000000101000});
    EXPECT_EQ(1, occurrences(output, ">neighborRateRatio : 1.000000\n"));
    EXPECT_EQ(1, occurrences(output, ">[eth1:] Measured delay: 550\n"));
    const ClockItemMembersType& item = clockItems.at(kPortKey);
    EXPECT_EQ(550, item.measuredDelay);
    EXPECT_EQ(1000000000000U, valueOf(item.prev_t1.ns));
    EXPECT_EQ(5000000000500U, valueOf(item.prev_t2.ns));
    EXPECT_EQ(5000000100500U, valueOf(item.prev_t3.ns));
    EXPECT_EQ(1000000101000U, valueOf(item.prev_t4.ns));
    EXPECT_EQ(0U, valueOf(item.t2.ns));
    EXPECT_EQ(0U, valueOf(item.t4.ns));
    EXPECT_EQ(1000000101000U, valueOf(item.responseTimes.entries[1].ns));
}

TEST_F(WithoutRecord, APeerDelayOutOfLimitsEmptiesTheFilter) {
    PTPMsgPathDelayReq message(0, kPort);
    const std::string output =
        exchange(message, {1000000000000, 2000000000000, 2000000100000, 1000000200000});
    EXPECT_EQ(1, occurrences(output, "negative: 50000 is out of limits\n"));
    EXPECT_EQ(0, clockItems.at(kPortKey).measuredDelay);
}

TEST_F(WithoutRecord, AnIncompleteExchangeIsIgnored) {
    clockItemOf(kPortKey).t1.ns = 1000;
    printedBy([&] { EXPECT_EQ(0U, followUp(1, 6000)); });
    EXPECT_EQ(6000U, valueOf(clockItems.at(kPortKey).t3.ns));
}

TEST_F(WithoutRecord, ARequestIsAnsweredWithACorrectionOf0) {
    std::vector<unsigned char> request = pdelayAnswer(2, 1, 0);
    setField(request, 8, 8, 0xEEEEEEEEEEEEEEEEULL);
    platform().txTimes = {5000000000, 6000000000};
    printedBy([&] { EXPECT_EQ(1U, handle(request, 4000000000)); });
    ASSERT_EQ(2U, platform().sent.size());
    EXPECT_EQ("00000000000500000000", toHex(&platform().sent[1].at(34), 10));
    EXPECT_EQ("0000000000000000", toHex(&platform().sent[1].at(8), 8));
}

TEST_F(WithoutRecord, AMasterSendsAndReadsBothClocks) {
    block.cfg.role = 1;
    block.cfg.TxMode = 1;
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    platform().txTimes = {5000000007, 6000000000};
    platform().phcTimes = {7000000000};
    platform().capabilities = {{}};
    printedBy([&] { EXPECT_EQ(0U, sync.processOutgoing()); });
    ASSERT_EQ(2U, platform().sent.size());
    EXPECT_EQ("0001", toHex(&platform().sent[0].at(30), 2));
    EXPECT_EQ("00000000000500000007", toHex(&platform().sent[1].at(34), 10));
    EXPECT_EQ(7000000000U, referenceRecord.hardwareTime[1]);
}

}  // namespace
