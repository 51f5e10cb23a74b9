#include <gtest/gtest.h>

#include "tests/tsyn/Records.h"
#include "tools/tsyn/feed/ClockSample.h"

namespace {

using records::kSecond;
using records::kStart;
using records::lookAt;

constexpr long long kTaiNs = 37 * kSecond;

/** Of a slave whose latest Sync was used at second 5. */
tsyn::DaemonState daemonAt(double second, gPtpTimeDataStruct record = records::slave(9, 5)) {
    tsyn::DaemonState daemon(true, 1.5);
    daemon.update(lookAt(records::slave(8, 4), 4.01));
    daemon.update(lookAt(record, second));
    return daemon;
}

gPtpTimeDataStruct ahead(long long ns) {
    gPtpTimeDataStruct record = records::slave(9, 5);
    record.masterOffset -= ns;
    record.originTime += static_cast<unsigned long long>(ns);
    return record;
}

TEST(FeedSample, IsOfAWholeMicrosecondOfTheSystemClock) {
    const auto sample = tsyn::sampleOf(daemonAt(5.0000012, ahead(2'000'300)), {});
    ASSERT_TRUE(sample);
    EXPECT_EQ(kStart + 5 * kSecond + 1000, sample->systemNs);
    EXPECT_EQ(2'000'300, sample->utcNs - sample->systemNs);
}

TEST(FeedSample, OfATaiTimeIsUtc) {
    const auto sample = tsyn::sampleOf(daemonAt(5, ahead(kTaiNs + 40)), {});
    ASSERT_TRUE(sample);
    EXPECT_EQ(40, sample->utcNs - sample->systemNs);
    tsyn::SampleLimits limits;
    limits.utcOffsetS = 30;
    EXPECT_FALSE(tsyn::sampleOf(daemonAt(5, ahead(kTaiNs + 40)), limits));
}

TEST(FeedSample, OfATimescaleThatIsNamedNeedsNoClockThatIsNearlyRight) {
    tsyn::SampleLimits limits;
    EXPECT_NE("", tsyn::sampleObstacle(daemonAt(5, ahead(900 * kSecond)), records::kOwner, limits));
    limits.timescale = tsyn::FeedTimescale::kTai;
    const auto daemon = daemonAt(5, ahead(900 * kSecond));
    EXPECT_EQ("", tsyn::sampleObstacle(daemon, records::kOwner, limits));
    EXPECT_EQ(863 * kSecond, tsyn::sampleOf(daemon, limits)->utcNs - (kStart + 5 * kSecond));
}

TEST(FeedObstacle, NoneOfASynchronisedSlave) {
    EXPECT_EQ("", tsyn::sampleObstacle(daemonAt(5.1), records::kOwner, {}));
}

TEST(FeedObstacle, AMasterWouldFeedTheHostItsOwnTime) {
    const std::string told =
        tsyn::sampleObstacle(daemonAt(5.1, records::master(9, 5)), records::kOwner, {});
    EXPECT_NE(std::string::npos, told.find("is a master")) << told;
}

TEST(FeedObstacle, SilenceOfTheMaster) {
    tsyn::DaemonState daemon = daemonAt(5.1);
    daemon.update(lookAt(records::slave(9, 5), 7));
    EXPECT_EQ("its daemon is not synchronised: stale",
              tsyn::sampleObstacle(daemon, records::kOwner, {}));
}

TEST(FeedObstacle, OfAStandardDaemonIsWhatItTells) {
    const auto told = [](unsigned char state, double second, long long maxBoundNs) {
        const auto quality = records::quality(state, 60);
        tsyn::SampleLimits limits;
        limits.maxBoundNs = maxBoundNs;
        return tsyn::sampleObstacle(daemonAt(second, records::with(records::slave(9, 5), quality)),
                                    records::kOwner, limits);
    };
    EXPECT_EQ("", told(TSYN_STATE_SYNCHRONISED, 5, 150));
    EXPECT_EQ("its error bound is above --max-bound", told(TSYN_STATE_SYNCHRONISED, 5, 149));
    EXPECT_EQ("its daemon is not synchronised: holdover", told(TSYN_STATE_HOLDOVER, 5, 1000));
    EXPECT_NE("", told(TSYN_STATE_SYNCHRONISED, 7, 1000)) << "no Sync for two seconds";
}

TEST(FeedObstacle, AClockThatWasSetIsNoticed) {
    const tsyn::Look before = lookAt(records::slave(9, 5), 5);
    tsyn::Look after = lookAt(records::slave(10, 6), 6);
    EXPECT_FALSE(tsyn::wasSet(before, after));
    after.systemNs -= 1'000'000;
    EXPECT_TRUE(tsyn::wasSet(before, after));
}

}  // namespace
