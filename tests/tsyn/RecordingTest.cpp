#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "base/Extended80.h"
#include "tools/tsyn/record/LookTimes.h"
#include "tools/tsyn/record/Recording.h"
#include "tools/tsyn/record/RotatingFile.h"

namespace {

using tsyn::LookTimes;
using tsyn::RecordedSample;
using tsyn::RecordedState;
using tsyn::recordingLine;
using tsyn::RecordingParser;
using tsyn::RotatingFile;
using tsyn::sampleOf;

gPtpTimeDataStruct slaveRecord() {
    gPtpTimeDataStruct record{};
    record.linkDelay = 250;
    record.masterOffset = -3'600'000'000'000;
    record.systemOffset = 2'000'000'000;
    record.localTime = 1'000'000'000;
    storeExtended(record.rateRatio1, 1.0L - 37e-6L);
    storeExtended(record.rateRatio2, 1.0L);
    record.acceptedSync = 17;
    record.sequenceId = 99;
    return record;
}

void put(gPtpTimeDataStruct& record, const gPtpTimeQuality& quality) {
    std::memcpy(record.unused172, &quality, sizeof quality);
}

gPtpTimeQuality quality() {
    gPtpTimeQuality quality{};
    quality.magic = kTimeQualityMagic;
    quality.layout = kTimeQualityLayout;
    quality.state = TSYN_STATE_HOLDOVER;
    quality.flags = TSYN_FLAG_LINK_DOWN | TSYN_FLAG_OTHER_MASTERS;
    quality.boundNs = 150;
    quality.boundGrowthPpb = 100;
    quality.voidAfterNs = 9'000'000'000;
    quality.masterIdentity[7] = 0x0A;
    quality.masterPort = 1;
    quality.stepCount = 3;
    quality.refusedSamples = 8;
    return quality;
}

TEST(Recording, ALineTellsTheRecordOfThatMoment) {
    gPtpTimeDataStruct record = slaveRecord();
    put(record, quality());
    EXPECT_EQ(
        "5000000000,3602999926000,holdover,1000000000,-3600000000000,2000000000,350,100,"
        "-37000.000,0.000,250,99,2000000000,17,0,0,3,0,0,0,0,8,000000000000000a-1,"
        "other-masters+link-down",
        recordingLine(sampleOf(record, 5'000'000'000, 0.0)));
}

TEST(Recording, ABoundThatIsVoidIsNotToldAndMeansLost) {
    gPtpTimeDataStruct record = slaveRecord();
    put(record, quality());
    const RecordedSample sample = sampleOf(record, 9'000'000'001, 0.0);
    EXPECT_EQ(RecordedState::kLost, sample.state);
    EXPECT_FALSE(sample.boundNs);
}

TEST(Recording, OfADaemonThatTellsNoneTheStateIsFoundInItsRecord) {
    gPtpTimeDataStruct record = slaveRecord();
    EXPECT_EQ(RecordedState::kSynchronised, sampleOf(record, 5, 0.2).state);
    EXPECT_EQ(RecordedState::kStale, sampleOf(record, 5, 1.5).state);
    storeExtended(record.rateRatio1, 1.4L);
    EXPECT_EQ(RecordedState::kAcquiring, sampleOf(record, 5, 0.2).state);
    record.systemTime = 7;
    EXPECT_EQ(RecordedState::kSending, sampleOf(record, 5, 0.2).state);
    EXPECT_EQ(RecordedState::kNoMaster, sampleOf(gPtpTimeDataStruct{}, 5, 0.2).state);
    EXPECT_FALSE(sampleOf(gPtpTimeDataStruct{}, 5, 0.2).timeNs);
}

TEST(Recording, BeforeThereIsATimeItsFieldsAreEmpty) {
    const std::string line = recordingLine(sampleOf(gPtpTimeDataStruct{}, 5, 0.2));
    EXPECT_EQ("5,,no-master,,,,,,,,,,,0,0,0,0,0,0,0,0,0,,", line);
    RecordingParser parser;
    ASSERT_TRUE(parser.setColumns(tsyn::recordingColumns()));
    const auto sample = parser.parse(line);
    ASSERT_TRUE(sample);
    EXPECT_FALSE(sample->localNs || sample->offsetNs || sample->ratePpb || sample->sequenceId);
    EXPECT_EQ(line, recordingLine(*sample));
}

TEST(Recording, TheFirstPairOfADeployedSlaveTellsNoRate) {
    gPtpTimeDataStruct record = slaveRecord();
    record.acceptedSync = 2;
    storeExtended(record.rateRatio1, 1.0L - 1e-10L);
    RecordedSample sample = sampleOf(record, 5'000'000'000, 0.2);
    EXPECT_EQ(RecordedState::kAcquiring, sample.state);
    EXPECT_FALSE(sample.ratePpb || sample.phcRatePpb);
    EXPECT_TRUE(sample.localNs);
    storeExtended(record.rateRatio2, 1.0L + 37e-6L);
    sample = sampleOf(record, 5'000'000'000, 0.2);
    EXPECT_EQ(RecordedState::kSynchronised, sample.state);
    EXPECT_TRUE(sample.ratePpb && sample.phcRatePpb);
}

TEST(Recording, ALineIsReadAsItWasWritten) {
    gPtpTimeDataStruct record = slaveRecord();
    put(record, quality());
    const std::string line = recordingLine(sampleOf(record, 5'000'000'000, 0.0));
    RecordingParser parser;
    ASSERT_TRUE(parser.setColumns(tsyn::recordingColumns()));
    const auto sample = parser.parse(line);
    ASSERT_TRUE(sample);
    EXPECT_EQ(line, recordingLine(*sample));
}

TEST(Recording, TornAndForeignLinesAreNoSamples) {
    RecordingParser parser;
    EXPECT_FALSE(parser.setColumns("t_s,error_ns"));
    ASSERT_TRUE(parser.setColumns("system_ns,state,local_ns,offset_ns,of_later_versions"));
    EXPECT_TRUE(parser.parse("1,lost,2,3,anything"));
    for (const char* line : {"", "1,lost,2", "1,lost,2,3", "x,lost,2,3,", "1,fine,2,3,",
                             "1,lost,2,3x,", "1,lost,2,3,,"}) {
        EXPECT_FALSE(parser.parse(line)) << line;
    }
}

class RotatingFileTest : public testing::Test {
protected:
    void SetUp() override {
        char folder[] = "/tmp/tsyn-rotating-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder));
        path_ = std::string(folder) + "/r";
    }
    void TearDown() override {
        for (const char* end : {"", ".1", ".2", ".3"}) {
            unlink((path_ + end).c_str());
        }
        rmdir(path_.substr(0, path_.size() - 2).c_str());
    }
    std::string text(const std::string& end) const {
        std::ostringstream all;
        all << std::ifstream(path_ + end).rdbuf();
        return all.str();
    }

    std::string path_;
};

TEST_F(RotatingFileTest, EachFileBeginsWithTheHeadAndTheOldestGoes) {
    RotatingFile file(path_, {10, 2});
    ASSERT_EQ("", file.open("head\n", false));
    for (const char* line : {"a", "b", "c", "d", "long line", "e"}) {
        ASSERT_EQ("", file.writeLine(line));
    }
    ASSERT_EQ("", file.close());
    EXPECT_EQ("head\ne\n", text(""));
    EXPECT_EQ("head\nlong line\n", text(".1"));
    EXPECT_EQ("head\nc\nd\n", text(".2"));
    EXPECT_FALSE(std::ifstream(path_ + ".3").is_open());
    EXPECT_EQ(3U, file.rotations());
    EXPECT_EQ(4 * 5 + 5 * 2 + 10U, file.writtenBytes());
}

TEST_F(RotatingFileTest, AnOlderFileOfTheNameIsReplacedOnlyWhenAsked) {
    std::ofstream(path_ + ".1") << "precious";
    EXPECT_NE(std::string::npos, RotatingFile(path_, {10, 1}).open("h\n", false).find("--force"));
    EXPECT_EQ("precious", text(".1"));
    EXPECT_FALSE(std::ifstream(path_).is_open());
    EXPECT_EQ("", RotatingFile(path_, {10, 1}).open("h\n", true));
    EXPECT_EQ("h\n", text(""));
    EXPECT_FALSE(std::ifstream(path_ + ".1").is_open());
}

TEST_F(RotatingFileTest, WithoutOlderFilesItBeginsAnew) {
    RotatingFile file(path_, {6, 0});
    ASSERT_EQ("", file.open("h\n", false));
    for (const char* line : {"aa", "bb", "cc"}) {
        ASSERT_EQ("", file.writeLine(line));
    }
    EXPECT_EQ("h\ncc\n", text(""));
}

TEST(LookTimes, OfEachSyncOneLookIsASample) {
    LookTimes times({});
    int looks = 0;
    int samples = 0;
    int shown = 0;
    for (double nowS = 100.0; nowS < 110.0; nowS = times.nextS(nowS)) {
        const int synced = static_cast<int>(nowS / 0.125);
        samples += times.isSample(nowS, looks > 0 && synced != shown) ? 1 : 0;
        shown = synced;
        ++looks;
    }
    EXPECT_NEAR(80, samples, 2);
    EXPECT_LT(looks, 4 * 80);
}

TEST(LookTimes, WithoutASyncThereIsASampleASecond) {
    LookTimes times({});
    int samples = 0;
    times.isSample(99.75, false);
    times.isSample(99.875, true);
    for (double nowS = 100.0; nowS < 110.0; nowS = times.nextS(nowS)) {
        samples += times.isSample(nowS, nowS == 100.0) ? 1 : 0;
    }
    EXPECT_NEAR(10, samples, 1);
    EXPECT_DOUBLE_EQ(10.0, times.sinceChangeS(110.0));
}

TEST(LookTimes, AnEvenRateKeepsItsGridThoughLooksAreLate) {
    LookTimes times(10.0);
    double nowS = 100.0;
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(times.isSample(nowS, false));
        nowS = times.nextS(nowS) + 0.003;
    }
    EXPECT_NEAR(110.0, nowS, 0.01);
    EXPECT_TRUE(times.isSample(120.0, false));
    EXPECT_NEAR(120.1, times.nextS(120.0), 1e-9);
}

}  // namespace
