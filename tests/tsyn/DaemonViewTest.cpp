#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tsyn/Records.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonJson.h"
#include "tools/tsyn/daemon/DaemonText.h"
#include "tools/tsyn/daemon/DaemonTime.h"
#include "tools/tsyn/daemon/SpySource.h"

namespace {

using records::kSecond;
using records::lookAt;
using tsyn::Look;
using tsyn::Timescale;

TEST(Counts, GrowPerSecond) {
    const std::vector<double> rates =
        tsyn::countsPerSecond(lookAt(records::slave(9, 5), 5), lookAt(records::slave(25, 7), 7));
    ASSERT_EQ(3U, rates.size());
    EXPECT_DOUBLE_EQ(8.0, rates[0]);
    EXPECT_DOUBLE_EQ(0.0, rates[1]);
}

TEST(Counts, StandWhenTheDaemonBeganAnew) {
    const Look before = lookAt(records::slave(900, 5), 5);
    EXPECT_DOUBLE_EQ(0.0, tsyn::countsPerSecond(before, lookAt(records::slave(8, 6), 6))[0]);
    Look other = lookAt(records::slave(908, 6), 6);
    EXPECT_FALSE(tsyn::beganAnew(before, other));
    other.segment = 1;
    EXPECT_TRUE(tsyn::beganAnew(before, other));
}

TEST(Counts, OfAnotherProcessBeginAnew) {
    gPtpTimeQuality quality = records::quality(TSYN_STATE_SYNCHRONISED, 60);
    const Look before = lookAt(records::with(records::slave(9, 5), quality), 5);
    EXPECT_FALSE(tsyn::beganAnew(before, lookAt(records::with(records::slave(17, 6), quality), 6)));
    quality.ownerPid = 78;
    EXPECT_TRUE(tsyn::beganAnew(before, lookAt(records::with(records::slave(17, 6), quality), 6)));
}

TEST(Counts, OfAMasterGoOnWhenItsSequenceWraps) {
    EXPECT_FALSE(
        tsyn::beganAnew(lookAt(records::master(65535, 5), 5), lookAt(records::master(7, 6), 6)));
}

TEST(DaemonTime, TellsUtcAndTaiByTheDistanceToTheHostsClock) {
    constexpr long long now = records::kStart;
    EXPECT_EQ(Timescale::kUtc, tsyn::timescaleOf(now + 1, now, 37));
    EXPECT_EQ(Timescale::kTai, tsyn::timescaleOf(now + 37 * kSecond, now, 37));
    EXPECT_EQ(Timescale::kOwn, tsyn::timescaleOf(now + 37 * kSecond, now, 20));
    EXPECT_EQ(Timescale::kOwn, tsyn::timescaleOf(4711, now, 37));
    EXPECT_EQ(now, tsyn::civilTime(now + 37 * kSecond, Timescale::kTai, 37).utcNs);
    EXPECT_EQ(now + 37 * kSecond, tsyn::civilTime(now, Timescale::kUtc, 37).taiNs);
    EXPECT_FALSE(tsyn::civilTime(4711, Timescale::kOwn, 37).utcNs);
}

TEST(TimeText, IsExactFarFromNow) {
    constexpr long long kLastOf2106 = 4294967295LL * 1000000000;
    EXPECT_EQ("2106-02-07T06:28:15.000000000", tsyn::isoText(kLastOf2106));
    EXPECT_EQ("1969-02-28T00:00:00.000000000", tsyn::isoText(-307LL * 86400 * 1000000000));
    EXPECT_EQ("1677-09-21T00:12:43.145224192",
              tsyn::isoText(std::numeric_limits<long long>::min()));
}

TEST(TimeText, IsWrittenToTheNanosecond) {
    EXPECT_EQ("2026-01-01T00:00:00.000000042", tsyn::isoText(records::kStart + 42));
    EXPECT_EQ("1969-12-31T23:59:59.999999999", tsyn::isoText(-1));
}

TEST(TimeRecord, IsToldFromTheMemoryOfAnotherProgram) {
    EXPECT_TRUE(tsyn::isTimeRecord(records::slave(9, 5)));
    EXPECT_TRUE(tsyn::isTimeRecord(gPtpTimeDataStruct{}));
    gPtpTimeDataStruct foreign = records::slave(9, 5);
    foreign.rateRatio2[11] = 1;
    EXPECT_FALSE(tsyn::isTimeRecord(foreign));
    foreign = records::slave(65536, 5);
    EXPECT_FALSE(tsyn::isTimeRecord(foreign));
}

TEST(SpyAddress, TakesAHostWithOrWithoutAPort) {
    EXPECT_EQ("319", tsyn::spyAddress("10.0.0.1")->port);
    EXPECT_EQ("10.0.0.1", tsyn::spyAddress("10.0.0.1:4000")->host);
    EXPECT_EQ("4000", tsyn::spyAddress("10.0.0.1:4000")->port);
    for (const char* wrong : {"", ":319", "a:", "a:0", "a:65536", "a:3x", "a:999999"}) {
        EXPECT_FALSE(tsyn::spyAddress(wrong)) << wrong;
    }
}

TEST(DaemonJson, OfADeployedDaemonLeavesNullWhatItDoesNotTell) {
    tsyn::DaemonState daemon(true, 1.5);
    daemon.update(lookAt(records::slave(9, 5), 5.5));
    const auto json = tsyn::daemonJson("eth1", daemon, {}, 37);
    EXPECT_EQ("deployed", json["profile"]);
    EXPECT_EQ("2026-01-01T00:00:05.500000000", json["utc"]);
    EXPECT_EQ("2026-01-01T00:00:42.500000000", json["tai"]);
    EXPECT_EQ(9, json["sync_accepted"]);
    EXPECT_TRUE(json["quality"].is_null());
    EXPECT_TRUE(json["owner"]["alive"].is_null());
}

TEST(DaemonJson, OfAStandardDaemonHasItsBoundAndItsOwner) {
    const gPtpTimeQuality quality = records::quality(TSYN_STATE_SYNCHRONISED, 60);
    tsyn::DaemonState daemon(true, 1.5);
    daemon.update(lookAt(records::with(records::slave(9, 5), quality), 7));
    const auto json = tsyn::daemonJson("eth1", daemon, {77, tsyn::Owner::Life::kEnded, "tsyn"}, 37);
    EXPECT_EQ(350, json["quality"]["bound_ns"]);
    EXPECT_EQ(records::kStart + 60 * kSecond, json["quality"]["void_after_ns"]);
    EXPECT_EQ(77, json["owner"]["pid"]);
    EXPECT_EQ(false, json["owner"]["alive"]);
    daemon.update(lookAt(records::with(records::slave(9, 5), quality), 61));
    const auto late = tsyn::daemonJson("eth1", daemon, {}, 37);
    EXPECT_EQ("lost", late["state"]);
    EXPECT_EQ("lost", late["quality"]["state"]);
}

std::string rowOf(const gPtpTimeDataStruct& record, double second, const std::string& label) {
    tsyn::DaemonState daemon(true, 1.5);
    daemon.update(lookAt(record, second));
    for (const tsyn::TextRow& row : tsyn::daemonRows(daemon, {}, 37)) {
        if (row.label == label) {
            return row.text;
        }
    }
    return "no such row";
}

TEST(DaemonRows, TellAMissingBoundFromOneThatNeverComes) {
    EXPECT_EQ("not told yet", rowOf({}, 5, "bound"));
    EXPECT_EQ("deployed: no bound", rowOf(records::slave(9, 5), 5, "bound"));
    const gPtpTimeQuality quality = records::quality(TSYN_STATE_SYNCHRONISED, 60);
    EXPECT_EQ("350 ns, growing by 100 ns/s, void in 53 s (2026-01-01T00:01:00)",
              rowOf(records::with(records::slave(9, 5), quality), 7, "bound"));
}

TEST(DaemonRows, NameTheFlagsAndTheMaster) {
    gPtpTimeQuality quality = records::quality(TSYN_STATE_SYNCHRONISED, 60);
    const gPtpTimeDataStruct slave = records::slave(9, 5);
    EXPECT_EQ("none", rowOf(records::with(slave, quality), 7, "flags"));
    quality.flags = TSYN_FLAG_SEVERAL_ANSWERS | TSYN_FLAG_LINK_DOWN;
    EXPECT_EQ("several-answers, link-down", rowOf(records::with(slave, quality), 7, "flags"));
    EXPECT_EQ("none", rowOf(records::with(slave, quality), 7, "master"));
    EXPECT_EQ("itself", rowOf(records::with(records::master(9, 5), quality), 7, "master"));
}

}  // namespace
