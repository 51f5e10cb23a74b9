#include <gtest/gtest.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fstream>

#include "tests/tsyn/DoctorEvidence.h"
#include "tools/tsyn/doctor/DoctorOptions.h"
#include "tools/tsyn/doctor/Settle.h"
#include "tools/tsyn/doctor/Told.h"

namespace tsyn::doctor {
namespace {

constexpr unsigned int kDomainAt = 4;

Settings told(const std::vector<std::string>& words) {
    return toldIn(words, "/nowhere", "");
}

/** Everything on the wire is of this domain. */
void useDomain(Evidence& evidence, unsigned char domain) {
    for (Heard& frame : evidence.wire.frames) {
        frame.message[kDomainAt] = domain;
    }
}

Evidence settled(Evidence evidence) {
    settle(evidence);
    return evidence;
}

TEST(DoctorOptions, EveryOneIsAskedFor) {
    CLI::App app("test", "doctor");
    DoctorOptions options;
    addDoctorOptions(app, options);
    app.parse(
        "eth1 --role master --profile deployed --domain 4 --vlan-id 7 --sync-interval 250 "
        "--data-id-list 000102030405060708090a0b0c0d0e0f --listen 9",
        false);
    const Expectation expected = settled(options.question()).expected;
    EXPECT_EQ("eth1", expected.interfaceName);
    EXPECT_TRUE(expected.master);
    EXPECT_FALSE(expected.anyMinorVersion);
    EXPECT_EQ(4U, expected.domain);
    EXPECT_EQ(7, expected.vlanId);
    EXPECT_EQ(250.0, expected.syncIntervalMs);
    EXPECT_EQ(15, expected.dataIds->at(15));
    EXPECT_EQ(9.0, expected.listenS);
}

TEST(DoctorTold, IsTheCommandLineOfTsynRun) {
    const Settings settings =
        told({"/usr/bin/tsyn", "run", "eth1", "--role", "slave", "--domain", "3", "--vlan-id", "5",
              "--propagation-delay", "250", "--sync-interval", "500", "--profile", "deployed",
              "--switch", "anyMinorVersion=1"});
    EXPECT_EQ(false, settings.master);
    EXPECT_EQ(3U, settings.domain);
    EXPECT_EQ(5, settings.vlanId);
    EXPECT_EQ(250, settings.fixedDelayNs);
    EXPECT_EQ(500.0, settings.syncIntervalMs);
    EXPECT_EQ(true, settings.anyMinorVersion);
    EXPECT_FALSE(settings.dataIds);
}

TEST(DoctorTold, IsNothingOfOtherProgramsAndOfWhatCannotBeRead) {
    EXPECT_FALSE(told({"host", "run", "eth1", "--role", "slave"}).domain);
    EXPECT_FALSE(told({"tsyn", "status", "eth1"}).domain);
    EXPECT_FALSE(told({"tsyn"}).domain);
    EXPECT_FALSE(told({}).domain);
    EXPECT_FALSE(told({"tsyn", "run", "eth1", "--role", "slave", "--newer-option"}).domain);
    EXPECT_FALSE(told({"tsyn", "run", "--config", "absent.toml"}).domain);
}

TEST(DoctorTold, StandsInTheConfigurationFileToo) {
    const std::string folder = ::testing::TempDir();
    const std::string file = "told-" + std::to_string(getpid()) + ".toml";
    std::ofstream(folder + "/" + file) << "role = \"master\"\n[protocol]\ndomain = 7\n";
    EXPECT_EQ(7U, toldIn({"tsyn", "run", "eth1", "--config", file}, folder, "/nowhere").domain);
    EXPECT_EQ(7U, toldIn({"tsyn", "run", "eth1", "--config=/" + file}, "/nowhere", folder).domain);
    unlink((folder + "/" + file).c_str());
}

TEST(DoctorSettle, WithoutAnyHintTheDefaultsOfTsynRunAreExpected) {
    Evidence evidence;
    settle(evidence);
    EXPECT_FALSE(evidence.expected.master);
    EXPECT_EQ(0U, evidence.expected.domain);
    EXPECT_EQ(-1, evidence.expected.vlanId);
    EXPECT_EQ(125.0, evidence.expected.syncIntervalMs);
}

TEST(DoctorSettle, WhatTheDaemonUsesIsExpectedUnlessAskedFor) {
    Evidence evidence = healthySlave();
    evidence.used = told({"tsyn", "run", "eth1", "--role", "master", "--domain", "3"});
    EXPECT_TRUE(settled(evidence).expected.master);
    EXPECT_EQ(3U, settled(evidence).expected.domain);
    evidence.asked.domain = 5;
    evidence.asked.master = false;
    EXPECT_FALSE(settled(evidence).expected.master);
    EXPECT_EQ(5U, settled(evidence).expected.domain);
}

TEST(DoctorSettle, OwnFramesTellRoleDomainAndVlan) {
    Evidence master = healthyMaster();
    master.expected.master = false;
    useDomain(master, 3);
    EXPECT_EQ("none", firstGate(settled(master)));
    EXPECT_EQ(3U, settled(master).expected.domain);
    EXPECT_EQ(-1, settled(master).used.vlanId);
    Evidence slave = healthySlave();
    useDomain(slave, 3);
    EXPECT_EQ("none", firstGate(settled(slave)));
    EXPECT_EQ(false, settled(slave).used.master);
}

TEST(DoctorSettle, SyncThatAreTakenTellTheDomainOfASlaveThatSendsNothing) {
    Evidence evidence = healthySlave();
    removeFrames(evidence, kPdelayReq);
    useDomain(evidence, 3);
    EXPECT_EQ(3U, settled(evidence).used.domain);
    evidence.record.before = evidence.record.after;
    EXPECT_FALSE(settled(evidence).used.domain);
}

TEST(DoctorSettle, TheRecordTellsAMasterThatIsQuiet) {
    Evidence evidence = healthySlave();
    evidence.wire.frames.clear();
    evidence.record.after->acceptedSync = 0;
    EXPECT_FALSE(settled(evidence).used.master);
    evidence.record.after->systemTime = 1;
    EXPECT_EQ(true, settled(evidence).used.master);
}

TEST(DoctorSettle, WhatADaemonLeftBehindTellsItsRoleAlone) {
    Evidence evidence = healthyMaster();
    useDomain(evidence, 3);
    evidence.expected.master = false;
    evidence.processes.clear();
    evidence.record.ownerLives = false;
    evidence.record.before = evidence.record.after;
    const Evidence known = settled(evidence);
    EXPECT_TRUE(known.expected.master);
    EXPECT_FALSE(known.used.master) << "nobody uses it";
    EXPECT_EQ(0U, known.expected.domain);
    EXPECT_NE(std::string::npos, verdictOf(known, "daemon").next.find("--role master"));
    evidence.asked.master = false;
    EXPECT_FALSE(settled(evidence).expected.master);
}

TEST(DoctorDomain, ThatTheDaemonDoesNotUseIsNamed) {
    for (Evidence evidence : {healthySlave(), healthyMaster()}) {
        evidence.asked.domain = 3;
        evidence = settled(evidence);
        EXPECT_EQ("domain", firstGate(evidence));
        const Verdict verdict = verdictOf(evidence, "domain");
        EXPECT_EQ("domain 3 was asked for, but the daemon uses domain 0", verdict.found);
        EXPECT_EQ("give doctor --domain 0, or nothing; or run the daemon with --domain 3",
                  verdict.next);
    }
}

TEST(DoctorVlan, ThatTheDaemonDoesNotUseIsNamed) {
    Evidence evidence = healthySlave();
    evidence.asked.vlanId = 5;
    evidence = settled(evidence);
    EXPECT_EQ("VLAN 5 was asked for, but the daemon uses no VLAN",
              verdictOf(evidence, "vlan").found);
    EXPECT_EQ("vlan", firstGate(evidence));
}

TEST(DoctorRole, ThatTheDaemonDoesNotHaveIsNamed) {
    Evidence slave = healthySlave();
    slave.asked.master = true;
    EXPECT_EQ("a master was asked for, but this daemon is a slave",
              verdictOf(settled(slave), "master").found);
    EXPECT_EQ("master", firstGate(settled(slave)));
    Evidence master = healthyMaster();
    master.asked.master = false;
    EXPECT_EQ("master", firstGate(settled(master)));
    removeFrames(master, kPdelayReq);
    EXPECT_EQ("frames", firstGate(settled(master)));
    EXPECT_EQ("look with --role slave, or run it as a master",
              verdictOf(settled(slave), "master").next);
    EXPECT_EQ("a slave was asked for, but this daemon is a master",
              verdictOf(settled(master), "frames").found);
}

/** A master that sends nothing and was told so many words. */
Evidence quietMaster(std::vector<std::string> words) {
    words.insert(words.begin(), {"tsyn", "run", "eth1", "--role", "master"});
    Evidence evidence = healthyMaster();
    removeFrames(evidence, kSync);
    removeFrames(evidence, kFollowUp);
    evidence.record.after->sequenceId = evidence.record.before->sequenceId;
    evidence.used = told(words);
    settle(evidence);
    return evidence;
}

TEST(DoctorMaster, ThatWasToldToSendNothingIsNotInTheWrong) {
    const Evidence off = quietMaster({"--tx-mode", "0"});
    EXPECT_EQ("this master was told to send no Sync: --tx-mode 0", verdictOf(off, "master").found);
    const Evidence none = quietMaster({"--autosar", "--status", "none"});
    EXPECT_EQ("this master was told to send no Sync: --autosar, and --status none",
              verdictOf(none, "master").found);
    EXPECT_NE(std::string::npos,
              verdictOf(none, "master").next.find("'tsyn set eth1 --status global'"));
    const Evidence later = quietMaster({"--autosar"});
    EXPECT_NE(std::string::npos,
              verdictOf(later, "master").found.find("it was given another one while it ran"));
    EXPECT_EQ("this node sends no Sync", verdictOf(quietMaster({}), "master").found);
    EXPECT_EQ("0 Sync published in 3.0 s; this node sends no Sync",
              verdictOf(quietMaster({}), "record").found);
}

TEST(DoctorMaster, IsJudgedWhereNobodySendsAnything) {
    Evidence evidence = quietMaster({"--tx-mode", "0"});
    evidence.wire.frames.clear();
    EXPECT_EQ("master", firstGate(evidence));
}

TEST(DoctorMaster, ThatWasStoppedHangs) {
    Evidence evidence = quietMaster({"--tx-mode", "0"});
    evidence.processes.front().isStopped = true;
    EXPECT_EQ("this master sends no Sync: its process 100 was stopped and hangs",
              verdictOf(evidence, "master").found);
}

TEST(DoctorRecord, OfASlaveThatTakesNothingHangsOnlyWhereItWasStopped) {
    Evidence evidence = healthySlave();
    evidence.record.before = evidence.record.after;
    EXPECT_EQ(std::string::npos, verdictOf(evidence, "record").next.find("hang"));
    EXPECT_NE(std::string::npos, verdictOf(evidence, "record").next.find("told another domain"));
    evidence.used = told({"tsyn", "run", "eth1", "--role", "slave"});
    EXPECT_NE(std::string::npos, verdictOf(evidence, "record").next.find("see in its log why"));
    evidence.processes.front().isStopped = true;
    EXPECT_NE(std::string::npos, verdictOf(evidence, "record").found.find("was stopped and hangs"));
}

}  // namespace
}  // namespace tsyn::doctor
