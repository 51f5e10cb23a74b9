#include "wire/FrameTrace.h"

#include <gtest/gtest.h>

#include "base/DbgLog.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

const char kTime[] = "0000000000070000000a";
const char kTimeAndPort[] = "0000000000070000000ad00fcafe000000010009";

/** A message of a type with the same header and a body of its own. */
std::vector<unsigned char> message(const std::string& typeAndLength, const std::string& body) {
    return fromHex(typeAndLength.substr(0, 2) + "02" + typeAndLength.substr(2) +
                   "05000208fffffffffffe8000deadbeef001b21fffeaabbcc0003abcd0503" + body);
}

class FrameTrace : public ::testing::Test {
protected:
    FrameTrace() {
        DbgTraceLevel = 0x80;
        MasterOrSlave = '1';
    }

    static std::string traceOf(std::vector<unsigned char> frame, ptp_time_t time, int length,
                               const std::string& name = "eth1", const std::string& text = "<<") {
        const StdoutCapture output;
        DisplayIOData(name.c_str(), &time, text.c_str(), frame.data(), length);
        return output.text();
    }

    static std::string traceOf(const std::vector<unsigned char>& frame,
                               ptp_time_t time = {7, 123456789}) {
        return traceOf(frame, time, static_cast<int>(frame.size()));
    }
};

/** The frame that a vector names. */
std::vector<unsigned char> namedFrame(const std::string& name) {
    if (name.rfind("type 1", 0) == 0) {
        return message("11002c", kTime);
    }
    for (const nlohmann::json& vector : vectors("messages")) {
        if (vector.at("name") == name + " as first sent") {
            return fromHex(vector.at("bytes"));
        }
    }
    return {};
}

TEST_F(FrameTrace, LinesAreAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("frame_trace")) {
        const std::vector<unsigned char> frame = namedFrame(vector.at("frame"));
        const std::string time = vector.at("timestamp");
        const std::size_t point = time.find('.');
        const ptp_time_t timestamp{std::stoull(time.substr(0, point)),
                                   static_cast<unsigned int>(std::stoul(time.substr(point + 1)))};
        EXPECT_EQ(vector.at("line").get<std::string>() + "\n",
                  traceOf(frame, timestamp, static_cast<int>(frame.size()), vector.at("name"),
                          vector.at("text")));
    }
}

TEST_F(FrameTrace, EveryTypeHasItsRow) {
    const std::string ids = "| 001B21FFFEAABBCC | 003 | 043981 |";
    const std::string event = "1[eth1]123|         7.123456789|068: << ";
    const std::string general = "1[eth1]123|                    |068: << ";
    const std::string time = " ts=7.123456789\n";
    const auto trace = [](const char* type) {
        return traceOf(message(std::string(type) + "0036", kTimeAndPort));
    };
    EXPECT_EQ(event + "Sync               " + ids + time, trace("10"));
    EXPECT_EQ(event + "PDelay Req         " + ids + time, trace("12"));
    EXPECT_EQ(event + "PDelay Resp        " + ids + time, trace("13"));
    EXPECT_EQ(general + "Follow up          " + ids + time, trace("18"));
    EXPECT_EQ(general + "PDelay Resp Follow " + ids + time, trace("1a"));
    EXPECT_EQ(general + "Anounce            " + ids + "\n", trace("1b"));
    EXPECT_EQ(event + "?04?\n", trace("14"));
    EXPECT_EQ(general + "?09?\n", trace("19"));
    EXPECT_EQ(general + "?0f?\n", trace("1f"));
}

TEST_F(FrameTrace, IsSwitchedOnByItsBitInAPositiveLevelAlone) {
    const std::vector<unsigned char> frame = message("10002c", kTime);
    for (const int level : {0, 1, 3, 4, 0x7F, 0x17F, -1, -128, -2147483647 - 1}) {
        DbgTraceLevel = level;
        EXPECT_EQ("", traceOf(frame)) << level;
    }
    for (const int level : {0x80, 0x81, 0xFF, 0x180, 0x7FFFFFFF}) {
        DbgTraceLevel = level;
        EXPECT_NE("", traceOf(frame)) << level;
    }
}

TEST_F(FrameTrace, ReadsOnlyTheGivenLength) {
    const std::vector<unsigned char> whole = message("10002c", kTime);
    for (std::size_t length = 1; length < whole.size(); ++length) {
        const std::vector<unsigned char> cut(whole.begin(),
                                             whole.begin() + static_cast<long>(length));
        const std::string line = traceOf(cut);
        EXPECT_EQ(37U, line.find("<< Sync  ")) << line;
    }
    EXPECT_EQ(
        "1[eth1]000|         7.000000005|058: << Sync               "
        "| 001B21FFFEAABBCC | 003 | 000000 | ts=7.000000005\n",
        traceOf(whole, {7, 5}, 30));
    for (const int length : {0, -1, -2147483647 - 1}) {
        EXPECT_EQ(31U, traceOf(whole, {7, 5}, length).find("|014: << Sync  "));
    }
}

TEST_F(FrameTrace, SecondsAreTheLow32BitsInTheMiddleColumn) {
    const std::string line = traceOf(message("10002c", kTime), {0x100000005ULL, 1});
    EXPECT_NE(std::string::npos, line.find("|         5.000000001|")) << line;
    EXPECT_NE(std::string::npos, line.find(" ts=4294967301.000000001\n")) << line;
}

TEST_F(FrameTrace, LongTextsAreCutToTheLine) {
    const std::string line = traceOf(message("10002c", kTime), {7, 5}, 44, std::string(300, 'n'));
    EXPECT_EQ("1[" + std::string(254, 'n') + "\n", line);
}

TEST_F(FrameTrace, BeginsWithTheRole) {
    MasterOrSlave = '2';
    EXPECT_EQ('2', traceOf(message("10002c", kTime)).at(0));
}

}  // namespace
