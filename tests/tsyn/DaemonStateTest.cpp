#include "tools/tsyn/daemon/DaemonState.h"

#include <gtest/gtest.h>

#include "tests/tsyn/Records.h"

namespace {

using records::lookAt;
using tsyn::DaemonRole;
using tsyn::DaemonState;
using tsyn::Verdict;

constexpr double kStaleAfterS = 1.5;

DaemonState seen(const gPtpTimeDataStruct& record, double second, bool sharesClock = true) {
    DaemonState daemon(sharesClock, kStaleAfterS);
    daemon.update(lookAt(record, second));
    return daemon;
}

TEST(DeployedSlave, IsSynchronisedWhileItsLastSyncIsRecent) {
    const DaemonState daemon = seen(records::slave(9, 5), 5.5);
    EXPECT_STREQ("synchronised", daemon.state());
    EXPECT_EQ(Verdict::kGood, daemon.verdict());
    EXPECT_NEAR(0.5, daemon.syncAgeS().value(), 1e-9);
    EXPECT_STREQ("deployed", profileName(daemon.latest()));
    EXPECT_FALSE(daemon.boundNs());
}

TEST(DeployedSlave, IsStaleWhenNoSyncFollows) {
    const DaemonState daemon = seen(records::slave(9, 5), 6.6);
    EXPECT_STREQ("stale", daemon.state());
    EXPECT_EQ(Verdict::kBad, daemon.verdict());
}

TEST(DeployedSlave, HasNoStateBeforeTheFirstSyncAndPrimesAfterIt) {
    EXPECT_STREQ("no sync yet", seen(gPtpTimeDataStruct{}, 1).state());
    gPtpTimeDataStruct first{};
    first.acceptedSync = 1;
    EXPECT_STREQ("priming", seen(first, 1).state());
    gPtpTimeDataStruct second = records::slave(2, 1);
    storeExtended(second.rateRatio1, 0);
    EXPECT_STREQ("priming", seen(second, 1).state());
}

TEST(DeployedSlave, APairThatWasRefusedIsNoTime) {
    gPtpTimeDataStruct refused = records::slave(9, 5);
    refused.originTime += 2'000'000;
    EXPECT_STREQ("rate refused", seen(refused, 5.1).state());
}

TEST(DeployedSlave, ANewRecordForgetsThatItWasSynchronised) {
    DaemonState daemon = seen(records::slave(9, 5), 5.1);
    gPtpTimeDataStruct anew = records::slave(2, 6);
    storeExtended(anew.rateRatio1, 0);
    daemon.update(lookAt(anew, 6.1));
    EXPECT_STREQ("priming", daemon.state());
    EXPECT_FALSE(daemon.isMoving());
}

TEST(Slave, OfAnotherClockIsJudgedByItsMovementAlone) {
    DaemonState daemon = seen(records::slave(9, 5), 5000.0, false);
    EXPECT_STREQ("stale", daemon.state());
    EXPECT_FALSE(daemon.syncAgeS());
    daemon.update(lookAt(records::slave(10, 6), 5000.5));
    EXPECT_STREQ("synchronised", daemon.state());
    daemon.update(lookAt(records::slave(10, 6), 5001.5));
    EXPECT_NEAR(1.0, daemon.syncAgeS().value(), 1e-9);
    EXPECT_EQ(records::kStart + 6 * records::kSecond, shownTimeNs(daemon));
}

TEST(Master, SendsAsLongAsItsCrossTimestampsAreRecent) {
    EXPECT_STREQ("sending", seen(records::master(7, 5), 5.5).state());
    EXPECT_EQ(Verdict::kGood, seen(records::master(7, 5), 5.5).verdict());
    EXPECT_STREQ("stale", seen(records::master(7, 5), 9).state());
    EXPECT_EQ(DaemonRole::kMaster, roleOf(lookAt(records::master(7, 5), 5)));
}

TEST(StandardSlave, TellsItsStateAndABoundThatGrows) {
    const gPtpTimeDataStruct record =
        records::with(records::slave(9, 5), records::quality(TSYN_STATE_HOLDOVER, 60));
    const DaemonState daemon = seen(record, 15);
    EXPECT_STREQ("holdover", daemon.state());
    EXPECT_EQ(Verdict::kHolding, daemon.verdict());
    EXPECT_EQ(150 + 10 * 100, daemon.boundNs());
    EXPECT_STREQ("standard", profileName(daemon.latest()));
}

TEST(StandardSlave, IsLostOnceItsBoundIsVoid) {
    const gPtpTimeDataStruct record =
        records::with(records::slave(9, 5), records::quality(TSYN_STATE_SYNCHRONISED, 60));
    EXPECT_STREQ("synchronised", seen(record, 60).state());
    EXPECT_STREQ("lost", seen(record, 60.1).state());
    EXPECT_FALSE(seen(record, 60.1).boundNs());
}

TEST(StandardSlave, OfAnotherClockTellsTheBoundAtItsLastSync) {
    const gPtpTimeDataStruct record =
        records::with(records::slave(9, 5), records::quality(TSYN_STATE_SYNCHRONISED, 60));
    const DaemonState daemon = seen(record, 9000, false);
    EXPECT_STREQ("synchronised", daemon.state());
    EXPECT_EQ(150, daemon.boundNs());
}

TEST(Rate, IsThatOfTheMasterOverTheCard) {
    EXPECT_NEAR(-37.0, tsyn::ratePpm(records::slave(9, 5)).value(), 1e-9);
    EXPECT_FALSE(tsyn::ratePpm(gPtpTimeDataStruct{}));
}

}  // namespace
