#include <algorithm>

#include "autosar/TLVObject.h"
#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "tests/support/Seed.h"
#include "tests/support/Vectors.h"

namespace {

/** A master with AUTOSAR extensions. */
class SubTlvSend : public Handlers {
protected:
    SubTlvSend() {
        block.cfg.role = 1;
        block.cfg.TxMode = 1;
        block.cfg.EnableAutosarExtensions = 1;
        block.cfg.TxCrcMode = 1;
        block.timeBaseStatus = 0x08;
    }

    void select(unsigned int mask) {
        block.cfg.timeSubTlv = mask & 1U;
        block.cfg.statusSubTlv = (mask >> 1 & 1U) + 2 * (mask >> 2 & 1U);
        block.cfg.userDataSubTlv = (mask >> 3 & 1U) + 2 * (mask >> 4 & 1U);
    }

    void configure(const nlohmann::json& vector) {
        select(vector.at("mask"));
        const std::vector<unsigned char> ids = fromHex(vector.at("DataIDList"));
        std::copy(ids.begin(), ids.end(), block.cfg.DataIDList);
        const std::vector<unsigned char> user = fromHex(vector.at("userBytes"));
        std::copy(user.begin(), user.end(), block.userBytes);
        block.userDataLength = vector.at("userDataLength");
        block.cfg.CrcTimeFlags = vector.at("CrcTimeFlags");
        block.cfg.TxCrcMode = vector.at("TxCrcMode");
        block.timeBaseStatus = vector.at("timeBaseStatus");
        block.cfg.Domain = vector.at("domain");
        record.softOffset = toS64(vector.at("softOffset"));
    }

    /** Sends one Sync and its Follow_Up, or neither; returns what is printed. */
    std::string send(PTPMsgSync& sync) {
        sync.service = &service;
        platform().sent.clear();
        platform().answersEverything = true;
        return printedBy([&] { EXPECT_EQ(0U, sync.processOutgoing()); });
    }
};

TEST_F(SubTlvSend, FollowUpsAreAsEveryReachableVectorTells) {
    int built = 0;
    for (const nlohmann::json& vector : vectors("follow_up")) {
        if (!vector.at("reachableByConfiguration").get<bool>()) {
            continue;
        }
        configure(vector);
        const std::unique_ptr<PTPMessage> sync =
            received(syncMessage(vector.at("sequenceId").get<unsigned int>()));
        PTPMsgFollowUp followUp(vector.at("domain").get<unsigned char>());
        followUp.service = &service;
        ptp_time_t tx = toPtpTime(toU64(vector.at("txTimestamp")));
        EXPECT_EQ(1U, followUp.processOutgoing(sync.get(), &tx));
        EXPECT_EQ(vector.at("message"),
                  toHex(followUp.data(), vector.at("messageLength").get<std::size_t>()))
            << vector;
        ++built;
    }
    EXPECT_EQ(16, built);
}

TEST_F(SubTlvSend, NoSyncLeavesWithoutAGlobalTimeBase) {
    select(0x0B);
    PTPMsgSync sync(0, kPort);
    for (const unsigned char status : {0x00, 0x04, 0xF7}) {
        block.timeBaseStatus = status;
        EXPECT_EQ("", send(sync)) << +status;
        EXPECT_TRUE(platform().sent.empty()) << +status;
    }
    EXPECT_EQ(0U, valueOf(record.sequenceId));
}

TEST_F(SubTlvSend, SyncsFlowOnceTheGlobalTimeBaseIsThere) {
    block.timeBaseStatus = 0;
    PTPMsgSync sync(0, kPort);
    send(sync);
    EXPECT_TRUE(platform().sent.empty());
    for (const unsigned char status : {0x08, 0x0C, 0xFF}) {
        block.timeBaseStatus = status;
        send(sync);
        EXPECT_EQ(2U, platform().sent.size()) << +status;
    }
    EXPECT_EQ(3U, valueOf(record.sequenceId)) << "withheld ones are not counted";
}

TEST_F(SubTlvSend, OnlyTheValue1WithholdsSync) {
    block.timeBaseStatus = 0;
    PTPMsgSync sync(0, kPort);
    for (const unsigned char extensions : {0, 2, 255}) {
        block.cfg.EnableAutosarExtensions = extensions;
        send(sync);
        EXPECT_EQ(2U, platform().sent.size()) << +extensions;
    }
}

TEST_F(SubTlvSend, EveryNonzeroValueAttaches) {
    select(0x0B);
    PTPMsgSync sync(0, kPort);
    for (const unsigned char extensions : {1, 2, 128, 255}) {
        block.cfg.EnableAutosarExtensions = extensions;
        send(sync);
        EXPECT_EQ(102U, platform().sent.at(1).size()) << +extensions;
        EXPECT_EQ("000300161a75fb605676", toHex(&platform().sent.at(1).at(76), 10));
    }
}

TEST_F(SubTlvSend, NothingIsAttachedWithoutExtensions) {
    select(0x0B);
    block.cfg.EnableAutosarExtensions = 0;
    PTPMsgSync sync(0, kPort);
    send(sync);
    EXPECT_EQ(76U, platform().sent.at(1).size());
}

TEST_F(SubTlvSend, AnEmptyMaskLeavesTheFollowUpAt76Bytes) {
    select(0);
    PTPMsgSync sync(0, kPort);
    send(sync);
    EXPECT_EQ(76U, platform().sent.at(1).size());
    EXPECT_EQ("004c", toHex(&platform().sent.at(1).at(2), 2));
}

TEST_F(SubTlvSend, LengthIsThatOfEveryMaskVector) {
    PTPMsgSync sync(0, kPort);
    for (const nlohmann::json& vector : vectors("tlv_mask")) {
        const nlohmann::json& selectors = vector.at("selectors");
        block.cfg.timeSubTlv = selectors.at(0);
        block.cfg.statusSubTlv = selectors.at(1);
        block.cfg.userDataSubTlv = selectors.at(2);
        send(sync);
        EXPECT_EQ(vector.at("messageLength").get<std::size_t>(), platform().sent.at(1).size())
            << vector;
        EXPECT_EQ(44U, platform().sent.at(0).size());
    }
}

TEST_F(SubTlvSend, AWrongCrcModeStillSends) {
    block.cfg.TxCrcMode = 7;
    block.cfg.CrcTimeFlags = 0x3F;
    for (const nlohmann::json& vector : vectors("crc_error_lines")) {
        select(vector.at("mask"));
        PTPMsgSync sync(0, kPort);
        const std::string output = send(sync);
        EXPECT_EQ(vector.at("lines").get<int>(),
                  occurrences(output, ">Wrong configuration TxCrcMode: 0x7 ...\n"))
            << vector;
        EXPECT_EQ(2U, platform().sent.size());
    }
}

TEST_F(SubTlvSend, HostsStatusAndUserDataGoIntoTheNextFollowUp) {
    select(0x14);
    PTPMsgSync sync(0, kPort);
    block.timeBaseStatus = 0x0C;
    block.userDataLength = 1;
    block.userBytes[0] = 0xAB;
    send(sync);
    EXPECT_EQ("51020c00610501ab000000", toHex(&platform().sent.at(1).at(86), 11));
}

/** A slave that has accepted the Sync to which the Follow_Ups belong. */
class SubTlvReceive : public Handlers {
protected:
    SubTlvReceive()
        : message(fromHex(
              "1802006600000008000000000000000000000000001b21fffeaabbcc0003012302fd00006553f1003ade"
              "68b10003001c0080c200000100000000000000000000000000000000000000000000000300161a75fb60"
              "567628033f8afd50020171600502112200d7")) {
        block.cfg.TxCrcMode = 1;
        for (unsigned char i = 0; i < 16; ++i) {
            block.cfg.DataIDList[i] = static_cast<unsigned char>(0x10 + i);
        }
        handleWithExtTime(syncMessage(0x0123), 1000);
        clockItemOf(kPortKey).arrivalMark = kUnmarked;
    }

    /** Handles a Follow_Up; true when it completed the sample. */
    bool isUsed() {
        printedBy([&] { EXPECT_EQ(1U, handleWithExtTime(message)); });
        return clockItemOf(kPortKey).initialised != 0;
    }

    bool isMarked() { return clockItemOf(kPortKey).arrivalMark != kUnmarked; }

    void setLength(std::size_t length) {
        message.resize(length);
        setField(message, 2, 2, length);
    }

    static constexpr int kUnmarked = -5;
    std::vector<unsigned char> message;
};

TEST_F(SubTlvReceive, GoodOnesAreReportedAndTheFollowUpIsUsed) {
    EXPECT_TRUE(isUsed());
    EXPECT_TRUE(isMarked());
    EXPECT_EQ(4U, block.subTlvCount);
    EXPECT_EQ("01010101", toHex(block.subTlvValid, 4));
    EXPECT_EQ(0x3F, block.cfg.CrcTimeFlags);
    EXPECT_EQ(1, block.timeBaseStatus);
    EXPECT_EQ(2, block.userDataLength);
}

TEST_F(SubTlvReceive, AreNotLookedForAtLength76) {
    setField(message, 2, 2, 76);
    block.subTlvCount = 9;
    EXPECT_TRUE(isUsed());
    EXPECT_EQ(9U, block.subTlvCount);
    EXPECT_EQ(0, block.timeBaseStatus);
}

TEST_F(SubTlvReceive, ALengthOf77IsATlvOf11BytesAndNoAutosarOne) {
    // One byte alone could not hold the ten of the head, and reading it would end in an error.
    setLength(77);
    block.subTlvCount = 9;
    EXPECT_TRUE(isUsed());
    EXPECT_EQ(9U, block.subTlvCount);
}

TEST_F(SubTlvReceive, TenSurplusBytesReadAsEmptySubTlvs) {
    setField(message, 78, 2, 22 + 10);
    EXPECT_TRUE(isUsed());
    EXPECT_EQ(4U, block.subTlvCount);
}

TEST_F(SubTlvReceive, ElevenBytesTooManyDropTheFollowUp) {
    setField(message, 78, 2, 22 + 11);
    EXPECT_FALSE(isUsed());
    EXPECT_FALSE(isMarked());
    EXPECT_EQ(4U, block.subTlvCount) << "what was read stays recorded";
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).originTime.ns));
}

TEST_F(SubTlvReceive, TruncatedOnesFromAnUnknownMasterLeaveNoTrace) {
    setField(message, 78, 2, 200);
    setField(message, 28, 2, 77);
    isUsed();
    EXPECT_EQ(1U, clockItems.size());
}

TEST_F(SubTlvReceive, AWrongCrcIsUsedAllTheSameAtTraceLevel0) {
    message.at(90) ^= 1;
    EXPECT_TRUE(isUsed());
    EXPECT_TRUE(isMarked());
    EXPECT_EQ("01000101", toHex(block.subTlvValid, 4));
}

TEST_F(SubTlvReceive, AWrongCrcDropsTheFollowUpAtTraceLevel1) {
    DbgTraceLevel = 1;
    message.at(90) ^= 1;
    const std::string before = image(record);
    EXPECT_FALSE(isUsed());
    EXPECT_FALSE(isMarked());
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).originTime.ns));
    EXPECT_EQ(before, image(record));
    EXPECT_EQ("01000101", toHex(block.subTlvValid, 4));
}

TEST_F(SubTlvReceive, TheNextGoodFollowUpIsUsedAfterADroppedOne) {
    DbgTraceLevel = 1;
    message.at(90) ^= 1;
    EXPECT_FALSE(isUsed());
    message.at(90) ^= 1;
    EXPECT_TRUE(isUsed());
}

TEST_F(SubTlvReceive, ASlaveWithoutCrcsDropsEverySecuredFollowUpAtTraceLevel1) {
    block.cfg.TxCrcMode = 0;
    DbgTraceLevel = 1;
    EXPECT_FALSE(isUsed());
    DbgTraceLevel = 0;
    EXPECT_TRUE(isUsed());
    EXPECT_EQ("00000000", toHex(block.subTlvValid, 4));
}

TEST_F(SubTlvReceive, AreTakenWhetherExtensionsAreConfiguredOrNot) {
    for (const unsigned char extensions : {0, 1, 255}) {
        block.cfg.EnableAutosarExtensions = extensions;
        block.subTlvCount = 0;
        clockItemOf(kPortKey).initialised = 0;
        EXPECT_TRUE(isUsed());
        EXPECT_EQ(4U, block.subTlvCount) << +extensions;
    }
}

TEST_F(SubTlvReceive, ForAnotherSyncAreReportedAllTheSame) {
    setField(message, 30, 2, 0x0133);
    EXPECT_FALSE(isUsed());
    EXPECT_TRUE(isMarked());
    EXPECT_EQ(4U, block.subTlvCount);
}

TEST_F(SubTlvReceive, OverwriteAMastersOwnFlagsStatusAndUserData) {
    block.cfg.role = 1;
    block.cfg.CrcTimeFlags = 0x01;
    block.timeBaseStatus = 0x08;
    clockItems.clear();
    const std::string before = image(record);
    EXPECT_FALSE(isUsed());
    EXPECT_EQ(0x3F, block.cfg.CrcTimeFlags);
    EXPECT_EQ(0x01, block.timeBaseStatus) << "and so no Sync leaves any more";
    EXPECT_EQ(2, block.userDataLength);
    EXPECT_EQ(before, image(record));
}

TEST_F(SubTlvReceive, OrganisationsCutByTheLengthAreNoAutosarOnes) {
    const std::vector<unsigned char> whole = message;
    block.subTlvCount = 9;
    for (std::size_t length = 77; length < 83; ++length) {
        message = whole;
        setLength(length);
        clockItemOf(kPortKey).initialised = 0;
        EXPECT_TRUE(isUsed()) << length;
        EXPECT_EQ(9U, block.subTlvCount) << length;
    }
}

TEST_F(SubTlvReceive, EveryMessageLengthUpTo255IsReadToItsEndAndNoFurther) {
    const std::vector<unsigned char> status = fromHex("50020171");
    for (std::size_t length = 92; length <= 255; ++length) {
        // One sub-TLV of an unknown type, then a secured status.
        message.assign(message.begin(), message.begin() + 86);
        setLength(length);
        message[86] = 0x7F;
        message[87] = static_cast<unsigned char>(length - 92);
        std::copy(status.begin(), status.end(), message.end() - 4);
        setField(message, 78, 2, length - 80 + 10);
        block.subTlvCount = 0;
        clockItemOf(kPortKey).initialised = 0;
        EXPECT_TRUE(isUsed()) << length;
        EXPECT_EQ(1U, block.subTlvCount) << length;
        EXPECT_EQ(1, block.subTlvValid[0]) << length;
        setField(message, 78, 2, length - 80 + 11);
        clockItemOf(kPortKey).initialised = 0;
        EXPECT_FALSE(isUsed()) << length;
    }
}

TEST_F(SubTlvReceive, RandomTlvsAreUsedWholeOrLeaveTheTimesAlone) {
    std::mt19937_64 random = seededGenerator();
    platform().answersEverything = true;
    ClockItemMembersType& item = clockItemOf(kPortKey);
    int used = 0;
    const StdoutCapture quiet;
    for (int round = 0; round < 5000; ++round) {
        setLength(89 + random() % 167);
        std::generate(message.begin() + 86, message.end(),
                      [&random] { return static_cast<unsigned char>(random()); });
        setField(message, 76, 4, 0x00030000 + random() % 256);
        message[86] = round % 2 == 0 ? 0x28 : 0x60;
        item = {};
        item.syncSequenceId = 0x0123;
        item.arrivalMark = kUnmarked;
        handle(message);
        EXPECT_EQ(isMarked(), item.initialised == 1) << round;
        EXPECT_EQ(isMarked() ? 1700000000987654321ULL : 0, valueOf(item.originTime.ns)) << round;
        used += isMarked() ? 1 : 0;
    }
    EXPECT_GT(used, 0);
    EXPECT_LT(used, 5000);
}

}  // namespace
