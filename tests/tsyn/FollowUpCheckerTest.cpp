#include "tools/tsyn/check/FollowUpChecker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"
#include "tools/tsyn/check/CheckReport.h"

namespace {

using Bytes = std::vector<unsigned char>;
using tsyn::DefectKind;
using tsyn::Finding;

constexpr tsyn::DataIdList kDataIds = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17,
                                       0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F};

/** Time, Status and UserData Secured, every header field under the time CRCs. */
constexpr char kSecured[] =
    "1802006600000008000000000000000000000000001b21fffeaabbcc0003012302fd00006553f1003ade68b1"
    "0003001c0080c200000100000000000000000000000000000000000000000000"
    "000300161a75fb60567628033f8afd50020171600502112200d7";
constexpr std::size_t kAutosarTlv = 76;
constexpr std::size_t kSubTlvs = 86;

Bytes ethernet(const Bytes& message, const std::string& tags = "") {
    Bytes frame = fromHex("0180c200000e001b21aabbcc" + tags + "88f7");
    frame.insert(frame.end(), message.begin(), message.end());
    return frame;
}

/** Hands whole frames over, numbered from 1, one a millisecond. */
class Wire {
public:
    Wire() : checker_(kDataIds) {}

    void send(const Bytes& frame, std::size_t cutBytes = 0) {
        tsyn::CaptureFrame captured;
        captured.number = ++count_;
        captured.timeNs = 1700000000000000000ULL + count_ * 1000000ULL;
        captured.bytes = frame.data();
        captured.captured = frame.size() - cutBytes;
        captured.onWire = frame.size();
        checker_.add(captured);
    }

    const tsyn::CheckResult& result() const { return checker_.result(); }
    const std::vector<Finding>& findings() const { return result().findings; }

private:
    tsyn::FollowUpChecker checker_;
    unsigned long count_ = 0;
};

std::vector<Finding> findingsOf(const Bytes& message) {
    Wire wire;
    wire.send(ethernet(message));
    return wire.findings();
}

std::set<std::string> fieldsOf(const Bytes& message) {
    std::set<std::string> fields;
    for (const Finding& finding : findingsOf(message)) {
        fields.insert(finding.defect.field);
    }
    return fields;
}

Bytes changed(std::size_t at, unsigned char value) {
    Bytes message = fromHex(kSecured);
    message.at(at) = value;
    return message;
}

/** A Sync with this sequenceId of this port. */
Bytes sync(unsigned int sequenceId, unsigned char port = 3) {
    Bytes message(44, 0);
    message[0] = 0x10;
    message[1] = 2;
    message[3] = 44;
    message[29] = port;
    message[30] = static_cast<unsigned char>(sequenceId >> 8);
    message[31] = static_cast<unsigned char>(sequenceId);
    return message;
}

std::vector<std::string> sequenceTexts(const std::vector<unsigned int>& ids) {
    Wire wire;
    for (const unsigned int id : ids) {
        wire.send(ethernet(sync(id)));
    }
    std::vector<std::string> texts;
    for (const Finding& finding : wire.findings()) {
        texts.push_back(finding.defect.text);
    }
    return texts;
}

TEST(FollowUpChecker, EveryFollowUpOfAComputingMasterIsAllRight) {
    unsigned int checked = 0;
    for (const auto& vector : vectors("follow_up")) {
        if (vector.at("TxCrcMode") == 1) {
            const Bytes message = fromHex(vector.at("message"));
            EXPECT_EQ(std::set<std::string>(), fieldsOf(message)) << vector.at("name");
            ++checked;
        }
    }
    EXPECT_GE(checked, 10U);
}

TEST(FollowUpChecker, MasterWithoutCrcsIsFound) {
    unsigned int checked = 0;
    for (const auto& vector : vectors("follow_up")) {
        if (vector.at("TxCrcMode") == 0) {
            EXPECT_FALSE(findingsOf(fromHex(vector.at("message"))).empty());
            ++checked;
        }
    }
    EXPECT_GE(checked, 1U);
}

/** Every bit of a byte that CRC_Time_0 or CRC_Time_1 covers. */
TEST(FollowUpChecker, FlippedHeaderBitIsFoundInTheCrcThatCoversIt) {
    const std::pair<std::size_t, std::size_t> time0[] = {{4, 5}, {28, 30}, {34, 44}};
    const std::pair<std::size_t, std::size_t> time1[] = {{8, 16}, {30, 32}};
    const auto expect = [](const auto& ranges, const char* field) {
        for (const auto& [first, end] : ranges) {
            for (std::size_t bit = 8 * first; bit < 8 * end; ++bit) {
                const auto flip = static_cast<unsigned char>(0x80U >> bit % 8);
                const Bytes message = changed(bit / 8, fromHex(kSecured)[bit / 8] ^ flip);
                EXPECT_EQ(1U, fieldsOf(message).count(field)) << field << ", bit " << bit;
            }
        }
    };
    expect(time0, "CRC_Time_0");
    expect(time1, "CRC_Time_1");
}

TEST(FollowUpChecker, FlippedMessageLengthIsFound) {
    for (std::size_t bit = 16; bit < 32; ++bit) {
        const auto flip = static_cast<unsigned char>(0x80U >> bit % 8);
        const Bytes message = changed(bit / 8, fromHex(kSecured)[bit / 8] ^ flip);
        EXPECT_FALSE(fieldsOf(message).empty()) << "bit " << bit;
    }
}

TEST(FollowUpChecker, EveryFlippedBitOfTheAutosarTlvIsFound) {
    const Bytes good = fromHex(kSecured);
    for (std::size_t bit = 8 * kAutosarTlv; bit < 8 * good.size(); ++bit) {
        const auto flip = static_cast<unsigned char>(0x80U >> bit % 8);
        const std::vector<Finding> findings = findingsOf(changed(bit / 8, good[bit / 8] ^ flip));
        EXPECT_FALSE(findings.empty()) << "bit " << bit;
    }
}

struct Damage {
    std::size_t at;
    const char* part;
    const char* field;
};

void PrintTo(const Damage& damage, std::ostream* stream) {
    *stream << "byte " << damage.at << ", " << damage.part << ": " << damage.field;
}

class DamagedByte : public testing::TestWithParam<Damage> {};

TEST_P(DamagedByte, IsNamed) {
    const Damage& damage = GetParam();
    const std::vector<Finding> findings =
        findingsOf(changed(damage.at, fromHex(kSecured)[damage.at] ^ 0x01));
    const auto named = [&damage](const Finding& finding) {
        return finding.defect.part == damage.part && finding.defect.field == damage.field;
    };
    EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), named));
}

INSTANTIATE_TEST_SUITE_P(
    FollowUpChecker, DamagedByte,
    testing::Values(
        Damage{47, "Follow_Up information TLV", "lengthField"},
        Damage{77, "AUTOSAR TLV", "tlvType"}, Damage{79, "AUTOSAR TLV", "lengthField"},
        Damage{82, "AUTOSAR TLV", "organizationId"},
        Damage{85, "AUTOSAR TLV", "organizationSubType"}, Damage{86, "sub-TLV type 0x29", "type"},
        Damage{87, "Time Secured", "length"}, Damage{88, "Time Secured", "CRC_Time_0"},
        Damage{88, "Time Secured", "CRC_Time_1"}, Damage{89, "Time Secured", "CRC_Time_0"},
        Damage{90, "Time Secured", "CRC_Time_1"}, Damage{91, "Status Not Secured", "reserved"},
        Damage{93, "Status Secured", "CRC_Status"}, Damage{94, "Status Secured", "CRC_Status"},
        Damage{97, "UserData Secured", "CRC_UserData"},
        Damage{98, "UserData Secured", "CRC_UserData"},
        Damage{101, "UserData Secured", "CRC_UserData"}));

TEST(FollowUpChecker, OneWrongCrcIsOneFindingWithItsPlace) {
    const std::vector<Finding> findings = findingsOf(changed(kSubTlvs + 4, 0x00));
    ASSERT_EQ(1U, findings.size());
    EXPECT_EQ(
        "frame 1  1700000000.001000000  001b21fffeaabbcc-3  seq 291  "
        "Time Secured: CRC_Time_1 is 0x00, should be 0xfd",
        tsyn::findingLine(findings[0]));
}

TEST(FollowUpChecker, AnotherDataIdListFailsEveryCrc) {
    tsyn::FollowUpChecker checker(tsyn::DataIdList{});
    const Bytes frame = ethernet(fromHex(kSecured));
    checker.add({1, 0, frame.data(), frame.size(), frame.size()});
    EXPECT_EQ(4U, checker.result().findings.size());
    EXPECT_NE(std::string::npos, tsyn::checkSummary("f", checker.result()).find("--data-id-list"));
}

TEST(FollowUpChecker, CrcsOfWhichNoneIsRightGetOneLine) {
    tsyn::FollowUpChecker checker(tsyn::DataIdList{});
    const Bytes frame = ethernet(fromHex(kSecured));
    checker.add({1, 0, frame.data(), frame.size(), frame.size()});
    checker.add({2, 0, frame.data(), frame.size(), frame.size()});
    const std::vector<std::string> lines = tsyn::findingLines(checker.result());
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ("all 8 CRCs are wrong: is --data-id-list missing, or that of another sender?",
              lines[0]);
    EXPECT_NE(std::string::npos, lines[1].find("repeats"));
}

TEST(FollowUpChecker, LengthFieldAgainstMessageLength) {
    const std::vector<Finding> findings = findingsOf(changed(kAutosarTlv + 3, 200));
    ASSERT_EQ(1U, findings.size());
    EXPECT_EQ(DefectKind::kLength, findings[0].defect.kind);
    EXPECT_EQ("is 200, messageLength 102 leaves 22", findings[0].defect.text);
}

/** messageLength cut to every size: never a read beyond it, always a finding. */
TEST(FollowUpChecker, CutMessageIsFoundAtEveryLength) {
    const Bytes whole = fromHex(kSecured);
    for (std::size_t length = 34; length < whole.size(); ++length) {
        Bytes message(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(findingsOf(message).empty()) << "held " << length;
        message[3] = static_cast<unsigned char>(length);
        message.shrink_to_fit();
        // Whole without the AUTOSAR TLV or without any TLV: a shorter, but sound message.
        const bool sound = length == kAutosarTlv || length == 44;
        EXPECT_EQ(sound, findingsOf(message).empty()) << "said " << length;
    }
}

TEST(FollowUpChecker, SubTlvBeyondItsTlv) {
    Bytes message = fromHex(kSecured);
    message.resize(kSubTlvs + 3);
    message[3] = static_cast<unsigned char>(message.size());
    message[kAutosarTlv + 3] = 9;
    const std::vector<Finding> findings = findingsOf(message);
    ASSERT_EQ(1U, findings.size());
    EXPECT_EQ("Time Secured", findings[0].defect.part);
    EXPECT_EQ("needs 3 bytes, the TLV leaves 1", findings[0].defect.text);
}

TEST(FollowUpChecker, SnapLengthIsToldFromAShortFrame) {
    Wire wire;
    wire.send(ethernet(fromHex(kSecured)), 10);
    wire.send(ethernet(sync(1)), 40);
    ASSERT_EQ(2U, wire.findings().size());
    EXPECT_EQ(DefectKind::kCut, wire.findings()[0].defect.kind);
    EXPECT_EQ(DefectKind::kCut, wire.findings()[1].defect.kind);
    EXPECT_FALSE(wire.findings()[1].sequenceId);
}

TEST(FollowUpChecker, VlanTagsAreLookedBehind) {
    Wire wire;
    wire.send(ethernet(fromHex(kSecured), "81002005"));
    wire.send(ethernet(sync(1), "88a8200581002005"));
    wire.send(fromHex("0180c200000e001b21aabbcc08004500"));
    wire.send(fromHex("0180c200000e001b21aabbcc8100"));
    EXPECT_TRUE(wire.findings().empty());
    EXPECT_EQ(2U, wire.result().vlanTagged);
    EXPECT_EQ(2U, wire.result().notPtp);
    EXPECT_EQ(1U, wire.result().byType[8]);
    EXPECT_EQ(1U, wire.result().byType[0]);
    EXPECT_EQ(1U, wire.result().right[0]);
}

TEST(FollowUpChecker, SequenceIdsCountByOneAndWrap) {
    EXPECT_TRUE(sequenceTexts({65534, 65535, 0, 1}).empty());
    EXPECT_EQ(std::vector<std::string>{"follows 7: 1 missing (8)"}, sequenceTexts({7, 9}));
    EXPECT_EQ(std::vector<std::string>{"follows 65534: 3 missing (65535 to 1)"},
              sequenceTexts({65534, 2}));
    EXPECT_EQ(std::vector<std::string>{"repeats"}, sequenceTexts({7, 7, 8}));
    EXPECT_EQ(std::vector<std::string>{"follows 700: restarted or out of order"},
              sequenceTexts({700, 1, 2}));
}

TEST(FollowUpChecker, PortsAndTypesCountApart) {
    Wire wire;
    for (const unsigned int id : {1U, 2U, 3U}) {
        wire.send(ethernet(sync(id)));
        wire.send(ethernet(sync(id + 100, 4)));
    }
    wire.send(ethernet(fromHex(kSecured)));
    EXPECT_TRUE(wire.findings().empty());
}

TEST(FollowUpChecker, JsonHoldsCountsAndFindings) {
    Wire wire;
    wire.send(ethernet(changed(kSubTlvs + 4, 0x00)));
    const auto json = nlohmann::json::parse(tsyn::checkJson("x.pcap", wire.result()));
    EXPECT_EQ(1, json.at("messages").at("Follow_Up"));
    EXPECT_EQ(1, json.at("crc").at("CRC_Time_1").at("wrong"));
    EXPECT_EQ(1, json.at("crc").at("CRC_UserData").at("right"));
    EXPECT_EQ("CRC_Time_1", json.at("findings").at(0).at("field"));
    EXPECT_EQ(291, json.at("findings").at(0).at("sequence_id"));
}

}  // namespace
