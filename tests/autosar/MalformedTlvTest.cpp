#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <utility>

#include "api/DaemonState.h"
#include "base/DbgLog.h"
#include "tests/autosar/AutosarInstance.h"
#include "tests/support/Hex.h"
#include "tests/support/Seed.h"

namespace {

constexpr unsigned int kUntouched = 99;
constexpr std::size_t kTlvSize = 26;

/** The value that holds at a position, of values by the first position that they hold at. */
unsigned int valueAt(unsigned int position, const std::map<unsigned int, unsigned int>& starts) {
    return std::prev(starts.upper_bound(position))->second;
}

class MalformedTlv : public AutosarInstance {
protected:
    MalformedTlv() : followUp(securedMessage()), tlv(followUp.receivedTlv()) {
        block.subTlvCount = kUntouched;
    }

    Verdict run() { return process(tlv, followUp); }

    /** A TLV with these sub-TLVs, ten zero bytes behind them. */
    void setSubTlvs(const Bytes& subTlvs, std::size_t announced) {
        std::fill(tlv.bytes + 10, tlv.bytes + sizeof tlv.bytes, 0);
        std::copy(subTlvs.begin(), subTlvs.end(), tlv.bytes + 10);
        wire::store16(tlv.bytes + 2, static_cast<unsigned int>(6 + announced));
        tlv.count = static_cast<unsigned int>(10 + subTlvs.size() + 10);
    }

    FollowUp followUp;
    TLVObject tlv;
};

TEST_F(MalformedTlv, CutAnywhereEndsWithWhatWasWholeBefore) {
    // What stands behind the cut must not be read, so nothing there is zero.
    std::fill(tlv.bytes + kTlvSize, tlv.bytes + sizeof tlv.bytes, 0x28);
    for (unsigned int size = 0; size < kTlvSize; ++size) {
        block.subTlvCount = kUntouched;
        tlv.count = size;
        EXPECT_EQ(Verdict(), run()) << size;
        const unsigned int whole = valueAt(size, {{0, kUntouched}, {10, 0}, {15, 2}, {19, 3}});
        EXPECT_EQ(whole, block.subTlvCount) << size;
    }
    tlv.count = kTlvSize;
    EXPECT_EQ(Verdict(1), run());
}

TEST_F(MalformedTlv, CutInsideASubTlvKeepsWhatCameBeforeTheCrc) {
    tlv.count = 13;
    EXPECT_EQ(Verdict(), run());
    EXPECT_EQ(0x3F, block.cfg.CrcTimeFlags);
    tlv.count = 18;
    EXPECT_EQ(Verdict(), run());
    EXPECT_EQ(1, block.timeBaseStatus);
    tlv.count = 23;
    EXPECT_EQ(Verdict(), run());
    EXPECT_EQ(2, block.userDataLength);
    EXPECT_EQ("110000", toHex(block.userBytes, 3));
}

TEST_F(MalformedTlv, CutTellsOfItOnlyAboveTraceLevel0) {
    tlv.count = 12;
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(Verdict(), run()); }));
    DbgTraceLevel = 1;
    MasterOrSlave = '1';
    EXPECT_EQ("1get: FATAL internal error at 'const T& get()'\n",
              printedBy([&] { EXPECT_EQ(Verdict(), run()); }));
}

TEST_F(MalformedTlv, CountsBeyondTheBufferEndAtIts256Bytes) {
    wire::store16(tlv.bytes + 2, 0xFFFF);
    for (const unsigned int count : {256U, 257U, 65535U, 0xFFFFFFFFU}) {
        tlv.count = count;
        EXPECT_EQ(Verdict(), run()) << count;
        EXPECT_EQ(4U, block.subTlvCount) << count;
    }
}

/** Entries recorded and whether the reader stays inside, for a length field of a TLV whose
 *  sub-TLVs have 5, 4 and 7 bytes with ten zero bytes behind them. */
TEST_F(MalformedTlv, EveryLengthFieldReadsAsFarAsItAnnounces) {
    for (unsigned int length = 0; length < 65536; length += length < 300 ? 1 : 251) {
        block.subTlvCount = kUntouched;
        wire::store16(tlv.bytes + 2, length);
        const Verdict verdict = run();
        const unsigned int entries = valueAt(length, {{0, 0}, {7, 2}, {12, 3}, {16, 4}});
        EXPECT_EQ(entries, block.subTlvCount) << length;
        // Two zero bytes are an empty sub-TLV of an unknown type.
        EXPECT_EQ(length <= 32 ? Verdict(1) : Verdict(), verdict) << length;
    }
}

TEST_F(MalformedTlv, UnknownTypesAreSkippedByTheirLengthByte) {
    const StdoutCapture output;
    for (unsigned int type = 0; type < 256; ++type) {
        const bool known = type == 0x28 || (type & 0xFEU) == 0x50 || (type & 0xFEU) == 0x60;
        if (known) {
            continue;
        }
        for (const unsigned char length : {0, 1, 5, 17}) {
            Bytes subTlvs(2 + length, 0x28);
            subTlvs[0] = static_cast<unsigned char>(type);
            subTlvs[1] = length;
            const Bytes status = {0x50, 0x02, 0x01, 0x71};
            subTlvs.insert(subTlvs.end(), status.begin(), status.end());
            setSubTlvs(subTlvs, subTlvs.size());
            EXPECT_EQ(Verdict(1), run()) << type << ' ' << +length;
            EXPECT_EQ(1U, block.subTlvCount) << type << ' ' << +length;
        }
    }
    EXPECT_EQ("", output.text());
}

TEST_F(MalformedTlv, EveryLengthByteOfAnUnknownTypeIsSkippedOrEndsTheTlv) {
    for (unsigned int length = 0; length < 256; ++length) {
        setSubTlvs({0x7F, static_cast<unsigned char>(length), 1, 2, 3}, 5);
        // Three bytes and the ten zeros can be skipped; what is left are empty sub-TLVs.
        EXPECT_EQ(length <= 13 ? Verdict(1) : Verdict(), run()) << length;
        EXPECT_EQ(0U, block.subTlvCount);
    }
}

TEST_F(MalformedTlv, EveryLengthByteOfAKnownTypeOnlyCountsDownTheRest) {
    for (unsigned int length = 0; length < 256; ++length) {
        setSubTlvs({0x50, static_cast<unsigned char>(length), 0x01, 0x71}, 4);
        EXPECT_EQ(Verdict(1), run()) << length;
        EXPECT_EQ(1U, block.subTlvCount) << length;
        EXPECT_EQ(1, block.timeBaseStatus) << length;
    }
}

TEST_F(MalformedTlv, ATooLargeLengthByteOfAKnownTypeHidesTheNextSubTlv) {
    setSubTlvs({0x50, 0x06, 0x01, 0x71, 0x51, 0x02, 0xAA, 0x00}, 8);
    EXPECT_EQ(Verdict(1), run());
    EXPECT_EQ(1, block.timeBaseStatus);
}

TEST_F(MalformedTlv, ManyEmptySubTlvsEnd) {
    Bytes subTlvs(236, 0);
    setSubTlvs(subTlvs, subTlvs.size());
    EXPECT_EQ(Verdict(1), run());
    EXPECT_EQ(0U, block.subTlvCount);
}

TEST_F(MalformedTlv, OffsetTimeBasesAreReportedAboveTraceLevel0AndSkipped) {
    DbgTraceLevel = 1;
    MasterOrSlave = '2';
    for (const auto& [type, number] : {std::pair<unsigned char, std::string>{0x44, "68"},
                                       std::pair<unsigned char, std::string>{0x34, "52"}}) {
        Bytes subTlvs(19, 0xEE);
        subTlvs[0] = type;
        subTlvs[1] = 17;
        setSubTlvs(subTlvs, subTlvs.size());
        const std::string output = printedBy([&] { EXPECT_EQ(Verdict(1), run()); });
        EXPECT_EQ(0U, output.find("2@ProcessIncomingAutoSARTLVObjects(")) << output;
        EXPECT_NE(std::string::npos,
                  output.find("): AUTOSAR Type " + number + " *** valid but not expectecd***\n"))
            << output;
        EXPECT_EQ(1, std::count(output.begin(), output.end(), '\n'));
        EXPECT_EQ(0U, block.subTlvCount);
    }
}

TEST_F(MalformedTlv, ASlaveWithAWrongCrcModeExpectsFFAndLogsEveryPiece) {
    block.cfg.TxCrcMode = 7;
    block.cfg.CrcTimeFlags = 0x3F;
    for (const nlohmann::json& vector : vectors("crc_error_lines")) {
        const unsigned int mask = vector.at("mask");
        FollowUp sent(securedMessage());
        Bytes tlvs;
        printedBy([&] { tlvs = built(sent, mask); });
        std::copy(tlvs.begin(), tlvs.end(), sent.buffer + 44);
        const StdoutCapture output;
        EXPECT_EQ(Verdict(1), process(sent.receivedTlv(), sent)) << vector;
        EXPECT_EQ(vector.at("lines").get<int>(),
                  output.count("Wrong configuration TxCrcMode: 0x7 ...\n"))
            << vector;
    }
}

TEST_F(MalformedTlv, RandomBytesNeverDoMoreThanBeRefused) {
    std::mt19937_64 random = seededGenerator();
    for (int round = 0; round < 20000; ++round) {
        std::generate(tlv.bytes + 10, tlv.bytes + sizeof tlv.bytes,
                      [&random] { return static_cast<unsigned char>(random()); });
        wire::store16(tlv.bytes + 2, random() % 300);
        tlv.count = random() % 300;
        // Types that are known come more often than chance has them.
        for (std::size_t at = 10; at < 200; at += random() % 12 + 1) {
            constexpr unsigned char kTypes[] = {0x28, 0x50, 0x51, 0x60, 0x61, 0x44, 0x34};
            tlv.bytes[at] = kTypes[random() % 7];
        }
        const Verdict verdict = run();
        const unsigned int known = std::min(block.subTlvCount, 4U);
        const bool allValid = std::all_of(block.subTlvValid, block.subTlvValid + known,
                                          [](unsigned char flag) { return flag == 1; });
        if (verdict && tlv.count >= 10) {
            EXPECT_TRUE(*verdict == 0 || allValid) << round;
        }
    }
}

}  // namespace
