#include <gtest/gtest.h>

#include <cstring>

#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/run/StatusReport.h"

namespace {

using tsyn::Status;

gPtpTimeQuality standardQuality() {
    gPtpTimeQuality quality{};
    quality.magic = kTimeQualityMagic;
    quality.layout = kTimeQualityLayout;
    quality.state = TSYN_STATE_HOLDOVER;
    quality.flags = TSYN_FLAG_LINK_DOWN;
    quality.boundNs = 150;
    quality.boundGrowthPpb = 100;
    quality.voidAfterNs = 9'000'000'000;
    const unsigned char identity[] = {2, 0, 0, 0xFF, 0xFE, 0, 0, 0x0A};
    std::memcpy(quality.masterIdentity, identity, sizeof identity);
    quality.masterPort = 1;
    quality.ignoredFrames = 7;
    return quality;
}

/** A slave whose time was anchored at 3 s of system time, seen at so many seconds. */
Status statusOf(const gPtpTimeQuality& quality, long long seconds) {
    gPtpTimeDataStruct record{};
    record.localTime = 1'000'000'000;
    record.systemOffset = 2'000'000'000;
    std::memcpy(reinterpret_cast<unsigned char*>(&record) + kTimeQualityOffset, &quality,
                sizeof quality);
    Status status;
    status.record = record;
    status.state = tsyn::SyncState::kSynchronised;
    status.systemNs = seconds * 1'000'000'000;
    return status;
}

tsyn::RunSummary summaryOf(const Status& status) {
    tsyn::RunSummary summary;
    summary.state = status.state;
    summary.record = status.record;
    summary.systemNs = status.systemNs;
    return summary;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(QualityReport, TellsStateMasterAndTheBoundOfThatMoment) {
    const std::string line = statusLine(statusOf(standardQuality(), 5));
    EXPECT_TRUE(contains(line, "  holdover      time -  seq 0  offset 0 ns")) << line;
    EXPECT_TRUE(contains(line, "  master 020000fffe00000a-1  bound 350 ns  link-down")) << line;
    EXPECT_FALSE(contains(line, "synchronised")) << line;
    const std::string json = statusJson("eth0", statusOf(standardQuality(), 5));
    EXPECT_TRUE(contains(json,
                         "\"quality\":{\"state\":\"holdover\",\"master\":"
                         "\"020000fffe00000a\",\"master_port\":1,\"bound_ns\":350,"
                         "\"flags\":[\"link-down\"],"))
        << json;
    EXPECT_TRUE(contains(json, "\"ignored_frames\":7")) << json;
}

TEST(QualityReport, EveryLineTellsTheOneStateOfTheDaemon) {
    gPtpTimeQuality acquiring = standardQuality();
    acquiring.state = TSYN_STATE_ACQUIRING;
    const struct {
        Status status;
        const char* state;
    } kCases[] = {{statusOf(standardQuality(), 5), "holdover"},
                  {statusOf(standardQuality(), 10), "lost"},
                  {statusOf(acquiring, 5), "acquiring"}};
    for (const auto& [status, state] : kCases) {
        const std::string told = std::string("\"state\":\"") + state + "\"";
        const std::string json = statusJson("eth0", status);
        EXPECT_TRUE(contains(json, "0," + told)) << json;
        EXPECT_TRUE(contains(json, "\"quality\":{" + told)) << json;
        EXPECT_TRUE(contains(summaryJson("eth0", summaryOf(status)), told));
        EXPECT_TRUE(contains(summaryLine(summaryOf(status)), std::string(" s, ") + state + ","));
    }
}

TEST(QualityReport, AMasterIsItsOwnAndASlaveMayHaveNone) {
    gPtpTimeQuality silent = standardQuality();
    std::memset(silent.masterIdentity, 0, sizeof silent.masterIdentity);
    EXPECT_TRUE(contains(statusLine(statusOf(silent, 5)), "  master none  bound 350 ns"));
    Status master = statusOf(silent, 5);
    master.master = true;
    master.state = tsyn::SyncState::kSending;
    EXPECT_TRUE(contains(statusLine(master), "  sending       time -  seq 0  master itself  bound"))
        << statusLine(master);
}

TEST(QualityReport, WhatTheDaemonTellsDoesNotStandBeforeItStartsOrAfterItsInterface) {
    Status status = statusOf(standardQuality(), 5);
    status.state = tsyn::SyncState::kGone;
    EXPECT_TRUE(contains(statusLine(status), "  interface gone  ")) << statusLine(status);
}

TEST(QualityReport, ABoundThatIsVoidIsNotTold) {
    EXPECT_TRUE(contains(statusLine(statusOf(standardQuality(), 10)), "bound -"));
    EXPECT_TRUE(contains(statusLine(statusOf(standardQuality(), 10)), "  lost  "));
    EXPECT_TRUE(contains(statusJson("eth0", statusOf(standardQuality(), 10)), "\"bound_ns\":null"));
    gPtpTimeQuality acquiring = standardQuality();
    acquiring.state = TSYN_STATE_ACQUIRING;
    EXPECT_TRUE(contains(statusLine(statusOf(acquiring, 5)), "bound -"));
}

TEST(QualityReport, DaemonsThatTellNoneAreShownAsEver) {
    const gPtpTimeQuality none{};
    EXPECT_FALSE(contains(statusLine(statusOf(none, 5)), "bound"));
    EXPECT_TRUE(contains(statusLine(statusOf(none, 5)), "  synchronised  "));
    EXPECT_FALSE(contains(statusJson("eth0", statusOf(none, 5)), "quality"));
    gPtpTimeQuality later = standardQuality();
    later.layout = 2;
    EXPECT_FALSE(contains(statusLine(statusOf(later, 5)), "bound"));
}

}  // namespace
