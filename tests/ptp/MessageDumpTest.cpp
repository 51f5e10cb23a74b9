#include <algorithm>
#include <cstring>
#include <sstream>

#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"

namespace {

using Lines = std::vector<std::string>;

Lines linesOf(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/** What the dump of a message prints. */
Lines dumpOf(const std::vector<unsigned char>& bytes) {
    PTPMsgSync message;
    std::copy(bytes.begin(), bytes.end(), message.data());
    return linesOf(printedBy([&] { EXPECT_EQ(0U, message.msgDebugHeader()); }));
}

/** A message of a type with the same header and a body of its own. */
std::vector<unsigned char> message(const std::string& typeAndLength, const std::string& body) {
    return fromHex(typeAndLength.substr(0, 2) + "02" + typeAndLength.substr(2) +
                   "05000208fffffffffffe8000deadbeef001b21fffeaabbcc0003abcd0503" + body);
}

/** The dump of that header. */
Lines headerLines(const std::string& name, const std::string& digit, const std::string& length) {
    return {"*** " + name,
            "    messageType[" + digit + "H]: " + std::to_string(std::stoi(digit, nullptr, 16)),
            "    versionPTP: 2",
            "    messageLength: " + length,
            "    subdomainNumber: 5",
            "    flags: 0x0208",
            "    correction: -1.5 nsec",
            "    ClockIdentity: 00-1b-21-fffe-aa-bb-cc",
            "    SourcePortId: 3",
            "    sequenceId: 43981",
            "    control: 5",
            "    logMessagePeroid: 3"};
}

Lines withBody(Lines lines, const Lines& body) {
    lines.insert(lines.end(), body.begin(), body.end());
    return lines;
}

const char kTimeAndPort[] = "0000000000070000000ad00fcafe123456780009";

TEST(MessageDump, IsAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("message_dump")) {
        EXPECT_EQ(vector.at("lines").get<Lines>(), dumpOf(fromHex(vector.at("message"))));
    }
}

TEST(MessageDump, OfSyncAndDelayReqShowsTheOriginTimestamp) {
    const Lines body = {"    originTimestamp(seconds): 7", "    originTimestamp(nanoseconds): 10"};
    EXPECT_EQ(withBody(headerLines("PTP_MSG_SYNC", "0", "44"), body),
              dumpOf(message("10002c", "0000000000070000000a")));
    EXPECT_EQ(withBody(headerLines("PTP_MSG_DELAY_REQ", "1", "44"), body),
              dumpOf(message("11002c", "0000000000070000000a")));
}

TEST(MessageDump, OfPdelayReqShowsTheHeaderAlone) {
    EXPECT_EQ(withBody(headerLines("PTP_MSG_PDELAY_REQ", "2", "54"), {}),
              dumpOf(message("120036", kTimeAndPort)));
}

TEST(MessageDump, OfResponsesShowsTheTimestampAndTheRequestingPort) {
    const auto body = [](const std::string& name) {
        return Lines{"    " + name + "(seconds): 7", "    " + name + "(nanoseconds): 10",
                     "    requestingSourcePortIdentity: d0-0f-ca-fe-12-34-56-78",
                     "    requestingSourcePortId: 9"};
    };
    EXPECT_EQ(
        withBody(headerLines("PTP_MSG_PDELAY_RESP", "3", "54"), body("requestreceiptTimestamp")),
        dumpOf(message("130036", kTimeAndPort)));
    EXPECT_EQ(
        withBody(headerLines("PTP_MSG_DELAY_RESP", "9", "54"), body("requestreceiptTimestamp")),
        dumpOf(message("190036", kTimeAndPort)));
    EXPECT_EQ(withBody(headerLines("PTP_MSG_PDELAY_RESP_FOLLOWUP", "a", "54"),
                       body("responseOriginTimestamp")),
              dumpOf(message("1a0036", kTimeAndPort)));
}

const char kFollowUpTime[] = "0000000000070000000a";
const char kInformation[] = "0003001c0080c2000001fffffffe00090102030405060708090a0b0c00000011";

Lines followUpBody(const Lines& values) {
    Lines body = {"    preciseOriginTimestamp(seconds): 7",
                  "    preciseOriginTimestamp(nanoseconds): 10", "    >FollowUp information TLV"};
    body.insert(body.end(), values.begin(), values.end());
    return body;
}

const Lines kInformationLines = {"       tlvtype: 3",
                                 "       lengthField: 28",
                                 "       organizationId: 0x80c2 (32962)",
                                 "       organizationSubType: 0x1 (1) ",
                                 "       organizationSubType: 0x1",
                                 "       cumulativeScaledRateOffset: 4294967294",
                                 "       gmTimeBaseIndicator: 9",
                                 "       lastGmPhaseChange: 0102030405060708090a0b0c",
                                 "       scaledLastGmFreqChange:17"};

TEST(MessageDump, OfFollowUpShowsTheInformationTlv) {
    EXPECT_EQ(withBody(headerLines("PTP_MSG_FOLLOWUP", "8", "76"), followUpBody(kInformationLines)),
              dumpOf(message("18004c", std::string(kFollowUpTime) + kInformation)));
}

TEST(MessageDump, OfFollowUpWithTheAutosarTlvFirstShowsTheTimeSubTlv) {
    EXPECT_EQ(
        withBody(headerLines("PTP_MSG_FOLLOWUP", "8", "64"),
                 followUpBody({"       tlvtype: 3", "       lengthField: 11",
                               "       organizationId: 0x1a75fb (1734139)",
                               "       organizationSubType: 0x605676 (6313590) ",
                               "          Type: 0x28 # AUTOSAR TLV Sub-TLV: Time Secured",
                               "          CRC_Time_Flags = 0x3f", "          CRC_Time_0     = 0x8a",
                               "          CRC_Time_1     = 0xfa"})),
        dumpOf(message("180040",
                       std::string(kFollowUpTime) + "0003000b1a75fb60567628033f8afa0000000000")));
}

TEST(MessageDump, OfAutosarTlvWithAnotherSubTlvFirstShowsTheInformationValues) {
    const Lines lines = dumpOf(
        message("180040", std::string(kFollowUpTime) + "0003000b1a75fb60567650020171000000000000"));
    EXPECT_EQ("       organizationSubType: 0x605676", lines.at(19));
    EXPECT_EQ("       cumulativeScaledRateOffset: 1342308721", lines.at(20));
}

TEST(MessageDump, OfAnnounceShowsValuesOnlyForHeaderAndUtcOffset) {
    EXPECT_EQ(
        withBody(headerLines("PTP_MSG_ANNOUNCE", "b", "76"),
                 {"    originCurrentUTCOffset: 37", "    priority1:", "    grandmasterClockClass: ",
                  "    grandmasterClockAccuracy: ", "    grandmasterClockVariance: ",
                  "    priority2: ", "    grandmasterClockIdentity: ", "    localStepsRemoved: ",
                  "    TimeSource: ", "    Path trace TLV ", "      tlvType: Path trace ",
                  "      lengthField: ", "      PathSequence: "}),
        dumpOf(message("1b004c",
                       "0000000000000000000000250001f8fe4010f8001b21fffeaabbcc0003"
                       "a000080008001b21fffeaabbcc")));
}

TEST(MessageDump, OfEveryOtherTypeShowsTheHeaderAlone) {
    const char* const names[] = {"PTP_MSG_UNASSIGNED", "PTP_MSG_SIGNALING", "PTP_MSG_MANAGEMENT"};
    for (const auto& [type, name] :
         {std::pair("4", 0), std::pair("5", 0), std::pair("6", 0), std::pair("7", 0),
          std::pair("c", 1), std::pair("d", 2), std::pair("e", 0), std::pair("f", 0)}) {
        EXPECT_EQ(withBody(headerLines(names[name], type, "54"), {}),
                  dumpOf(message(std::string("1") + type + "0036", kTimeAndPort)));
    }
}

/** Ends of the fields of a Follow_Up in the order of its dump. */
constexpr std::size_t kFollowUpEnds[] = {1,  1,  2,  4,  5,  8,  16, 28, 30, 32, 33, 34,
                                         40, 44, 44, 46, 48, 51, 54, 54, 58, 60, 72, 76};

TEST(MessageDump, StopsAtTheFirstFieldThatTheLengthDoesNotCover) {
    std::vector<unsigned char> bytes = message("18004c", std::string(kFollowUpTime) + kInformation);
    const Lines whole = dumpOf(bytes);
    ASSERT_EQ(std::size(kFollowUpEnds), whole.size());
    for (std::size_t length = 0; length <= 76; ++length) {
        setField(bytes, 2, 2, length);
        const Lines lines = dumpOf(bytes);
        const auto covered = std::count_if(std::begin(kFollowUpEnds), std::end(kFollowUpEnds),
                                           [length](std::size_t end) { return end <= length; });
        ASSERT_EQ(static_cast<std::size_t>(covered), lines.size()) << length;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_TRUE(i == 3 || lines[i] == whole[i]) << length << ": " << lines[i];
        }
    }
}

TEST(MessageDump, CutResponsesAndAnnouncesStopLikewise) {
    for (const char* type : {"13", "19", "1a", "1b", "10"}) {
        std::size_t before = 0;
        for (std::size_t length = 0; length <= 76; ++length) {
            std::vector<unsigned char> bytes =
                message(std::string(type) + "004c", std::string(84, '0'));
            setField(bytes, 2, 2, length);
            const std::size_t count = dumpOf(bytes).size();
            EXPECT_GE(count, before) << type << ' ' << length;
            EXPECT_EQ(length >= (std::string(type) == "1b" ? 46U : 40U), count > 12) << length;
            before = count;
        }
    }
}

TEST(MessageDump, ShowsTheVersionWithoutItsMinorPart) {
    std::vector<unsigned char> bytes = message("10002c", kFollowUpTime);
    for (const unsigned char version : {0x12, 0xF2}) {
        bytes[1] = version;
        EXPECT_EQ("    versionPTP: 2", dumpOf(bytes).at(2));
    }
}

TEST(MessageDump, LengthsBeyondTheBufferShowWhatIsThere) {
    std::vector<unsigned char> bytes = message("18004c", std::string(kFollowUpTime) + kInformation);
    setField(bytes, 2, 2, 65535);
    const Lines lines = dumpOf(bytes);
    EXPECT_EQ(std::size(kFollowUpEnds), lines.size());
    EXPECT_EQ("    messageLength: 65535", lines.at(3));
}

TEST(MessageDump, CorrectionsKeepTheirFraction) {
    for (const auto& [units, text] : {std::pair(0x10000ULL, "1.0"), std::pair(0x8000ULL, "0.5"),
                                      std::pair(0x7FFFFFFFFFFFFFFFULL, "140737488355328.0"),
                                      std::pair(0x8000000000000000ULL, "-140737488355328.0"),
                                      std::pair(0xFFFFFFFFFFFFFFFFULL, "-0.0")}) {
        std::vector<unsigned char> bytes = message("10002c", kFollowUpTime);
        setField(bytes, 8, 8, units);
        EXPECT_EQ("    correction: " + std::string(text) + " nsec", dumpOf(bytes).at(6));
    }
}

}  // namespace
