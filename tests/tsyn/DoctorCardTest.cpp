#include <gtest/gtest.h>
#include <linux/net_tstamp.h>

#include <cerrno>

#include "tests/tsyn/DoctorEvidence.h"
#include "tools/tsyn/doctor/CardEvidence.h"
#include "tools/tsyn/doctor/ProcessScan.h"

namespace tsyn::doctor {
namespace {

Process steerer() {
    Process process;
    process.pid = 200;
    process.name = "ptp4l";
    process.steersByName = true;
    process.isVisible = true;
    return process;
}

Evidence withoutDaemon() {
    Evidence evidence = healthySlave();
    evidence.processes.clear();
    evidence.record = RecordFacts{};
    return evidence;
}

TEST(DoctorGates, AllPassOnAHealthySlaveAndOnAHealthyMaster) {
    EXPECT_EQ("none", firstGate(healthySlave()));
    EXPECT_EQ("none", firstGate(healthyMaster()));
}

TEST(DoctorGates, WithoutAnInterfaceAllButTheRightsAreSkipped) {
    Evidence evidence = healthySlave();
    evidence.interface = InterfaceFacts{};
    for (const Judgement& judgement : judgeAll(evidence)) {
        const Outcome expected = judgement.gate == "interface"      ? Outcome::kFail
                                 : judgement.gate == "capabilities" ? Outcome::kPass
                                                                    : Outcome::kSkip;
        EXPECT_EQ(expected, judgement.verdict.outcome) << judgement.gate;
    }
}

TEST(DoctorCarrier, TellsADownInterfaceFromAMissingCable) {
    Evidence evidence = healthySlave();
    evidence.interface.hasCarrier = false;
    EXPECT_EQ("no carrier", verdictOf(evidence, "carrier").found);
    evidence.interface.isUp = false;
    EXPECT_EQ("'ip link set eth1 up' raises it", verdictOf(evidence, "carrier").next);
    EXPECT_EQ("no link", verdictOf(evidence, "frames").found);
}

TEST(DoctorCapabilities, AreReadFromTheEffectiveSet) {
    const CapabilityFacts all = capabilitiesIn("Name:\tx\nCapEff:\t0000000002003000\nCapBnd:\t0\n");
    EXPECT_TRUE(all.netRaw && all.netAdmin && all.sysTime);
    const CapabilityFacts one = capabilitiesIn("Name:\tx\nCapEff:\t0000000000001000\n");
    EXPECT_TRUE(one.netAdmin);
    EXPECT_FALSE(one.netRaw || one.sysTime);
}

TEST(DoctorCapabilities, AdministrationIsMissedOnlyWhereNoDaemonRuns) {
    Evidence evidence = healthySlave();
    evidence.capabilities.netAdmin = false;
    EXPECT_EQ("none", firstGate(evidence));
    evidence = withoutDaemon();
    evidence.capabilities.netAdmin = false;
    EXPECT_EQ("capabilities", firstGate(evidence));
}

TEST(DoctorClock, SaysWhatTsynRunWouldSay) {
    Evidence evidence = healthySlave();
    evidence.clock.problem = "the card has no clock; use an i210";
    EXPECT_EQ("the card has no clock", verdictOf(evidence, "clock").found);
    EXPECT_EQ("use an i210", verdictOf(evidence, "clock").next);
    evidence.clock = {1, "", "the card has no stamping; use an i210", ""};
    EXPECT_EQ("clock", firstGate(evidence));
}

TEST(DoctorClock, MayBeClosedToThisUserWhileADaemonRuns) {
    Evidence evidence = healthySlave();
    evidence.clock.accessProblem = "/dev/ptp1 cannot be opened; run as root";
    EXPECT_EQ("none", firstGate(evidence));
    evidence = withoutDaemon();
    evidence.clock.accessProblem = "/dev/ptp1 cannot be opened; run as root";
    EXPECT_EQ("clock", firstGate(evidence));
}

TEST(DoctorSteering, NamesWhoElseHasTheClockOpenForWriting) {
    Evidence evidence = healthySlave();
    Process foreign;
    foreign.pid = 200;
    foreign.name = "mydaemon";
    foreign.mayWriteClock = true;
    evidence.processes.push_back(foreign);
    EXPECT_EQ("the clock is also in the hands of mydaemon (pid 200)",
              verdictOf(evidence, "steering").found);
    evidence.processes.back().mayWriteClock = false;
    EXPECT_EQ("none", firstGate(evidence));
}

TEST(DoctorSteering, AClockProgramCountsWhenItNamesOurs) {
    Evidence evidence = healthySlave();
    evidence.processes.push_back(steerer());
    EXPECT_EQ("none", firstGate(evidence));
    evidence.processes.back().namesOurs = true;
    EXPECT_EQ("steering", firstGate(evidence));
}

TEST(DoctorSteering, IsNotJudgedWhereAClockProgramHidesItsFiles) {
    Evidence evidence = healthySlave();
    evidence.processes.push_back(steerer());
    evidence.processes.back().isVisible = false;
    EXPECT_EQ(Outcome::kSkip, verdictOf(evidence, "steering").outcome);
}

TEST(DoctorSteering, TwoDaemonsAreOneTooManyButAChildIsNone) {
    Evidence evidence = healthySlave();
    Process second = evidence.processes.front();
    second.pid = 300;
    evidence.processes.push_back(second);
    EXPECT_EQ("2 daemons write one record: tsyn (pid 100), tsyn (pid 300)",
              verdictOf(evidence, "steering").found);
    evidence.processes.back().parent = kDaemonPid;
    EXPECT_EQ("none", firstGate(evidence));
}

TEST(DoctorTimestamping, EveryFilterWithSyncAndPdelayWillDo) {
    Evidence evidence = healthySlave();
    for (const int filter :
         {HWTSTAMP_FILTER_ALL, HWTSTAMP_FILTER_PTP_V2_EVENT, HWTSTAMP_FILTER_PTP_V2_L2_EVENT}) {
        evidence.stamping.receiveFilter = filter;
        EXPECT_EQ("none", firstGate(evidence)) << filter;
    }
    for (const int filter :
         {HWTSTAMP_FILTER_NONE, HWTSTAMP_FILTER_PTP_V2_L2_SYNC, HWTSTAMP_FILTER_PTP_V1_L4_EVENT}) {
        evidence.stamping.receiveFilter = filter;
        EXPECT_EQ("timestamping", firstGate(evidence)) << filter;
    }
}

TEST(DoctorTimestamping, IsAskedOfADaemonAndOfADriverThatTells) {
    Evidence evidence = withoutDaemon();
    evidence.stamping.sends = false;
    EXPECT_EQ(Outcome::kSkip, verdictOf(evidence, "timestamping").outcome);
    evidence = healthySlave();
    evidence.stamping = {EOPNOTSUPP, false, 0};
    EXPECT_EQ(Outcome::kSkip, verdictOf(evidence, "timestamping").outcome);
}

TEST(DoctorReception, NeedsPromiscuityOrTheAddressInTheFilter) {
    Evidence evidence = healthySlave();
    evidence.interface.takesEverything = false;
    EXPECT_EQ("reception", firstGate(evidence));
    evidence.interface.takesGptp = true;
    EXPECT_EQ("none", firstGate(evidence));
    constexpr char kList[] =
        "2    eth1            1     0     01005e000001\n"
        "3    eth11           1     0     0180c200000e\n";
    EXPECT_TRUE(listsGptpAddress(kList, "eth11"));
    EXPECT_FALSE(listsGptpAddress(kList, "eth1"));
}

TEST(DoctorDaemon, IsKnownByItsMappingItsOwnerOrAMovingRecord) {
    Evidence evidence = healthySlave();
    evidence.processes.clear();
    EXPECT_EQ("none", firstGate(evidence));
    evidence.record.ownerLives = false;
    EXPECT_EQ("none", firstGate(evidence));
    evidence.record.before = evidence.record.after;
    EXPECT_EQ("daemon", firstGate(evidence));
    EXPECT_EQ("the daemon, pid 100, is gone; what is in its record is old",
              verdictOf(evidence, "daemon").found);
    EXPECT_EQ("no daemon", verdictOf(evidence, "record").found);
}

TEST(ProcessScan, ACommandNamesAnInterfaceAsAWordOrBehindAnOption) {
    for (const char* command :
         {"ptp4l -i eth1 -m", "ptp4l -ieth1", "phc2sys --slave=eth1 ", "ts2phc -c /dev/eth1"}) {
        EXPECT_TRUE(namesWord(command, "eth1")) << command;
    }
    for (const char* command : {"ptp4l -i eth10", "ptp4l -i xeth1", "ptp4l -i eth1.5", "ptp4l"}) {
        EXPECT_FALSE(namesWord(command, "eth1")) << command;
    }
}

}  // namespace
}  // namespace tsyn::doctor
