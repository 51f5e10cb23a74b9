#include <algorithm>
#include <stdexcept>

#include "base/Extended80.h"
#include "ptp/ReferenceRecord.h"
#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "tests/support/Vectors.h"
#include "timebase/PartialRegressionLine.h"

namespace {

constexpr unsigned long long kTx = 1700000000987654321ULL;

class SyncSend : public Handlers {
protected:
    SyncSend() {
        block.cfg.role = 1;
        block.cfg.TxMode = 1;
    }

    /** Sends one Sync and its Follow_Up, the Sync stamped with txNs. */
    void send(PTPMsgSync& sync, unsigned long long txNs = kTx) {
        sync.service = &service;
        platform().txTimes = {txNs, txNs + 90000};
        platform().phcTimes = {1700000000125400000LL};
        platform().capabilities = {
            {1700000037125500123LL, 1700000000125500000LL, 37000000123LL, 1}};
        printedBy([&] { EXPECT_EQ(0U, sync.processOutgoing()); });
    }

    /** preciseOriginTimestamp of the Follow_Up to a Sync sent at txNs. */
    std::string originTimestamp(unsigned long long txNs, long long softOffset) {
        record.softOffset = softOffset;
        PTPMsgSync sync(0, kPort);
        send(sync, txNs);
        return toHex(&platform().sent.at(1).at(34), 10);
    }
};

class AnnounceSend : public Handlers {};
class FollowUpSend : public Handlers {};

/** Bytes of one of the messages that stand in the vectors, by name and domain. */
std::string expectedMessage(const std::string& name, unsigned char domain) {
    for (const nlohmann::json& vector : vectors("messages")) {
        if (vector.at("name") == name && vector.value("domain", -1) == domain) {
            return vector.at("bytes");
        }
    }
    ADD_FAILURE() << "no message '" << name << "'";
    return {};
}

TEST_F(SyncSend, TemplateAndFirstSync) {
    for (const unsigned char domain : {0, 5}) {
        PTPMsgSync sync(domain, kPort);
        EXPECT_EQ(expectedMessage("Sync template before the first send", domain),
                  toHex(sync.data(), 44));
        platform().sent.clear();
        send(sync);
        EXPECT_EQ(expectedMessage("Sync as first sent", domain), toHex(platform().sent.at(0)));
    }
}

TEST_F(SyncSend, FollowUpGoesOutAfterTheSyncWithItsTransmitTime) {
    PTPMsgSync sync(0, kPort);
    send(sync);
    ASSERT_EQ(2U, platform().sent.size());
    EXPECT_EQ(
        "1802004c00000008000000000000000000000000001b21fffeaabbcc0003000102fd00006553f1003ade"
        "68b10003001c0080c200000100000000000000000000000000000000000000000000",
        toHex(platform().sent[1]));
}

TEST_F(SyncSend, FollowUpNamesTheConfiguredDomain) {
    block.cfg.Domain = 9;
    PTPMsgSync sync(4, kPort);
    send(sync);
    EXPECT_EQ(4, platform().sent.at(0).at(4));
    EXPECT_EQ(9, platform().sent.at(1).at(4));
}

TEST_F(SyncSend, EverySyncNamesTheAddressThatTheCardHasThen) {
    PTPMsgSync sync(0, kPort);
    send(sync);
    platform().clockIdentity[7] = 0xDD;
    platform().sent.clear();
    send(sync);
    EXPECT_EQ("001b21fffeaabbdd0003", toHex(&platform().sent.at(0).at(20), 10));
    EXPECT_EQ("001b21fffeaabbdd0003", toHex(&platform().sent.at(1).at(20), 10));
}

TEST_F(SyncSend, CarriesTheSoftOffsetIntoTheSeconds) {
    EXPECT_EQ("00000000000600000001", originTimestamp(5999999999ULL, 2));
}

TEST_F(SyncSend, BorrowsFromTheSecondsForANegativeSoftOffset) {
    EXPECT_EQ("0000000000053b9ac9ff", originTimestamp(6000000001ULL, -2));
}

TEST_F(SyncSend, SendsNothingAndLogsNothingInTxMode0) {
    block.cfg.TxMode = 0;
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, sync.processOutgoing()); }));
    EXPECT_TRUE(platform().sent.empty());
    EXPECT_EQ(0U, valueOf(record.sequenceId));
}

TEST_F(SyncSend, SendsNothingAndReportsAnUnknownTxMode) {
    block.cfg.TxMode = 0x1F;
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    const std::string output = printedBy([&] { EXPECT_EQ(0U, sync.processOutgoing()); });
    expectError(output, "processOutgoing", "Wrong configuration TxMode 0x1f ...");
    EXPECT_TRUE(platform().sent.empty());
}

TEST_F(SyncSend, ReportsAnUnknownTxModeWithoutAGlobalTimeBaseToo) {
    block.cfg.TxMode = 2;
    block.cfg.EnableAutosarExtensions = 1;
    PTPMsgSync sync(0, kPort);
    const std::string output = printedBy([&] { sync.processOutgoing(); });
    expectError(output, "processOutgoing", "Wrong configuration TxMode 0x2 ...");
}

TEST_F(SyncSend, EverySentSyncPrintsTheTxModeLine) {
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    platform().txTimes = {1, 2};
    platform().phcTimes = {3};
    platform().capabilities = {{4, 5, 6, 1}};
    const std::string output = printedBy([&] { sync.processOutgoing(); });
    expectError(output, "processOutgoing", "Wrong configuration TxMode 0x1 ...");
}

TEST_F(SyncSend, SequenceCounter65535IsFollowedBy0) {
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    platform().answersEverything = true;
    printedBy([&] {
        for (int i = 0; i < 65535; ++i) {
            sync.processOutgoing();
            platform().sent.clear();
        }
    });
    EXPECT_EQ(65535U, valueOf(record.sequenceId));
    platform().sent.clear();
    printedBy([&] { sync.processOutgoing(); });
    EXPECT_EQ("0000", toHex(&platform().sent.at(0).at(30), 2));
    EXPECT_EQ("0000", toHex(&platform().sent.at(1).at(30), 2));
    EXPECT_EQ(0U, valueOf(record.sequenceId));
}

TEST_F(SyncSend, PublishesTheMasterRecord) {
    for (const nlohmann::json& vector : vectors("master_record")) {
        record.masterOffset = 99;
        PTPMsgSync sync(0, kPort);
        send(sync);
        EXPECT_EQ(vector.at("image"), image(record)) << vector;
    }
}

TEST_F(SyncSend, KeepsTheSoftOffsetAndTheLinkDelayOfTheRecord) {
    record.softOffset = 1234;
    record.linkDelay = 77;
    PTPMsgSync sync(0, kPort);
    send(sync);
    EXPECT_EQ(1234, valueOf(record.softOffset));
    EXPECT_EQ(77, valueOf(record.linkDelay));
}

TEST_F(SyncSend, PublishesTheInverseSlopeOfTheFittedLine) {
    slope_mZ = 2;
    slope_mN = 3;
    PTPMsgSync sync(0, kPort);
    send(sync);
    slope_mZ = 1;
    slope_mN = 1;
    EXPECT_EQ(1.5L, loadExtended(record.rateRatio1));
    EXPECT_EQ("0000", toHex(record.rateRatio1 + 10, 2));
}

TEST_F(SyncSend, NotesTheClockReadingInTheSecondReferencePair) {
    PTPMsgSync sync(0, kPort);
    platform().clocks[CLOCK_PROCESS_CPUTIME_ID] = {2, 147483648};
    send(sync);
    EXPECT_EQ(1700000000125400000ULL, referenceRecord.hardwareTime[1]);
    EXPECT_EQ(0xFFFFFFFF80000000ULL, referenceRecord.cpuTime[1]);
    EXPECT_EQ(0U, referenceRecord.hardwareTime[0]);
    EXPECT_EQ(0U, referenceRecord.cpuTime[0]);
}

/** Whether a Follow_Up carries nothing behind the information TLV. */
bool isPlain(const nlohmann::json& vector) {
    return vector.at("mask") == 0;
}

TEST_F(FollowUpSend, IsBuiltAsEveryVectorTells) {
    int built = 0;
    for (const nlohmann::json& vector : vectors("follow_up")) {
        if (!isPlain(vector)) {
            continue;
        }
        ++built;
        const auto domain = vector.at("domain").get<unsigned char>();
        record.softOffset = toS64(vector.at("softOffset"));
        std::vector<unsigned char> sent = fromHex(expectedMessage("Sync as first sent", 0));
        setField(sent, 30, 2, vector.at("sequenceId").get<unsigned int>());
        const std::unique_ptr<PTPMessage> sync = received(sent);
        PTPMsgFollowUp followUp(domain);
        followUp.service = &service;
        ptp_time_t tx = toPtpTime(toU64(vector.at("txTimestamp")));
        EXPECT_EQ(1U, followUp.processOutgoing(sync.get(), &tx));
        EXPECT_EQ(vector.at("message"),
                  toHex(followUp.data(), vector.at("messageLength").get<std::size_t>()))
            << vector;
    }
    EXPECT_GE(built, 1);
}

TEST_F(FollowUpSend, HandsTheDistributedTimeBack) {
    record.softOffset = -1700000000LL * 1000000000LL;
    PTPMsgSync sync(0, kPort);
    PTPMsgFollowUp followUp(0);
    followUp.service = &service;
    ptp_time_t tx = {1700000007, 5};
    followUp.processOutgoing(&sync, &tx);
    EXPECT_EQ(7U, tx.seconds);
    EXPECT_EQ(5U, tx.nanoseconds);
}

/** What the making of a Follow_Up is refused with. */
std::string refusalOf(PTPMsgFollowUp& followUp) {
    PTPMsgSync sync(0, kPort);
    std::fill_n(sync.data() + 20, 12, 0xAB);
    ptp_time_t tx{};
    try {
        followUp.processOutgoing(&sync, &tx);
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "nothing";
}

TEST_F(FollowUpSend, WithoutAServiceIsRefusedAfterTheIdentityIsCopied) {
    PTPMsgFollowUp followUp(0);
    EXPECT_EQ("basic_string: construction from null is not valid", refusalOf(followUp));
    EXPECT_EQ("abababababababababababab", toHex(followUp.data() + 20, 12));
    EXPECT_EQ(0, followUp.data()[44]);
}

TEST_F(FollowUpSend, WithoutAnInterfaceNameIsRefusedLikewise) {
    platform().isNameless = true;
    PTPMsgFollowUp followUp(0);
    followUp.service = &service;
    EXPECT_EQ("basic_string: construction from null is not valid", refusalOf(followUp));
}

TEST_F(AnnounceSend, TemplateAndFirstAnnounce) {
    for (const unsigned char domain : {0, 5}) {
        PTPMsgAnnounce announce(domain, kPort);
        announce.service = &service;
        EXPECT_EQ(expectedMessage("Announce template before the first send", domain),
                  toHex(announce.data(), 76));
        platform().txTimes = {1};
        platform().sent.clear();
        EXPECT_EQ(1U, announce.processOutgoing());
        EXPECT_EQ(expectedMessage("Announce as first sent", domain), toHex(platform().sent.at(0)));
    }
}

TEST_F(AnnounceSend, NamesTheAddressThatTheCardHasThen) {
    PTPMsgAnnounce announce(0, kPort);
    announce.service = &service;
    platform().txTimes = {1, 2};
    announce.processOutgoing();
    platform().clockIdentity[0] = 0x02;
    announce.processOutgoing();
    for (const std::size_t offset : {20, 53, 68}) {
        EXPECT_EQ("021b21fffeaabbcc", toHex(&platform().sent.at(1).at(offset), 8)) << offset;
    }
}

TEST_F(AnnounceSend, CountsItsOwnSequence) {
    PTPMsgAnnounce announce(0, kPort);
    announce.service = &service;
    platform().answersEverything = true;
    for (int i = 0; i < 65536; ++i) {
        announce.processOutgoing();
    }
    EXPECT_EQ("0001", toHex(&platform().sent.at(0).at(30), 2));
    EXPECT_EQ("ffff", toHex(&platform().sent.at(65534).at(30), 2));
    EXPECT_EQ("0000", toHex(&platform().sent.at(65535).at(30), 2));
}

}  // namespace
