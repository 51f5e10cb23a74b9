#include <gtest/gtest.h>

#include "tests/tsyn/DoctorEvidence.h"
#include "tools/tsyn/doctor/Listener.h"

namespace tsyn::doctor {
namespace {

constexpr unsigned char kThirdMac = 0x0C;

TEST(DoctorListener, TellsTheTagWhereverTheKernelPutIt) {
    const unsigned char tagged[] = {1, 0x80, 0xC2, 0,    0,    0x0E, 2,    0,    0,   0,
                                    0, 9,    0x81, 0x00, 0xE0, 0x05, 0x88, 0xF7, 0x10};
    EXPECT_EQ(5, heardFrame(tagged, sizeof tagged, -1)->vlanId);
    const unsigned char plain[] = {1, 0x80, 0xC2, 0, 0, 0x0E, 2, 0, 0, 0, 0, 9, 0x88, 0xF7, 0x10};
    EXPECT_EQ(-1, heardFrame(plain, sizeof plain, -1)->vlanId);
    EXPECT_EQ(0, heardFrame(plain, sizeof plain, 0)->vlanId);
    EXPECT_EQ(9, heardFrame(plain, sizeof plain, 0)->source[5]);
    EXPECT_EQ(1U, heardFrame(plain, sizeof plain, 0)->message.size());
    EXPECT_FALSE(heardFrame(plain, 13, -1));
}

TEST(DoctorFrames, OwnOnesAreNotThoseOfOthers) {
    Evidence evidence = healthySlave();
    for (Heard& frame : evidence.wire.frames) {
        frame.isOwn = true;
    }
    EXPECT_EQ("frames", firstGate(evidence));
    evidence.expected.master = true;
    EXPECT_EQ("none", firstGate(evidence));
}

TEST(DoctorFrames, CutOnesAreNoMessages) {
    Evidence evidence = healthySlave();
    for (Heard& frame : evidence.wire.frames) {
        frame.message.resize(33);
    }
    EXPECT_EQ("frames", firstGate(evidence));
}

TEST(DoctorVersion, OnlyADeployedSlaveMindsTheMinorOne) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kSync, [](Heard& sync) { sync.message[1] = 0x12; });
    EXPECT_EQ("none", firstGate(evidence));
    EXPECT_EQ("PTP version 2.1", verdictOf(evidence, "version").found);
    evidence.expected.anyMinorVersion = false;
    EXPECT_EQ("version", firstGate(evidence));
    EXPECT_TRUE(contains(verdictOf(evidence, "version").next, "anyMinorVersion"));
    EXPECT_EQ("no Sync got this far", verdictOf(evidence, "domain").found);
}

TEST(DoctorDomain, RequestsInOtherNetworksAreNoFaultOfAMaster) {
    Evidence evidence = healthyMaster();
    changeFrames(evidence, kPdelayReq, [](Heard& request) { request.message[4] = 3; });
    EXPECT_EQ("none", firstGate(evidence));
    EXPECT_EQ("3 Pdelay_Req of domain 3 from 00:00:00:00:00:0b, which is for another master",
              verdictOf(evidence, "domain").found);
    Evidence tagged = healthyMaster();
    changeFrames(tagged, kPdelayReq, [](Heard& request) { request.vlanId = 5; });
    EXPECT_EQ("none", firstGate(tagged));
}

TEST(DoctorVersion, MajorOnesOtherThanTwoAreForNobody) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kSync, [](Heard& sync) { sync.message[1] = 0x01; });
    EXPECT_EQ("24 Sync of PTP version 1.0 from 00:00:00:00:00:0a",
              verdictOf(evidence, "version").found);
}

TEST(DoctorDomain, SaysWhichOneItHeardAndHowToRunThere) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kSync, [](Heard& sync) { sync.message[4] = 3; });
    const Verdict verdict = verdictOf(evidence, "domain");
    EXPECT_EQ("24 Sync of domain 3 from 00:00:00:00:00:0a", verdict.found);
    EXPECT_TRUE(contains(verdict.next, "run with --domain 3"));
    EXPECT_EQ("domain", firstGate(evidence));
    evidence.expected.domain = 3;
    EXPECT_EQ(Outcome::kPass, verdictOf(evidence, "domain").outcome);
}

TEST(DoctorDomain, AboveThoseThereAreIsForThePeerToChange) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kSync, [](Heard& sync) { sync.message[4] = 16; });
    EXPECT_EQ("have the peer use domain 0; none above 15 is taken",
              verdictOf(evidence, "domain").next);
}

TEST(DoctorDomain, AnotherMastersDomainIsOnlyMentioned) {
    Evidence evidence = healthySlave();
    Heard sync = frameOf(kSync, kThirdMac, 1, 1.0);
    sync.message[4] = 7;
    evidence.wire.frames.push_back(sync);
    EXPECT_EQ("none", firstGate(evidence));
    EXPECT_EQ("domain 0; ignored: 1 Sync of domain 7 from 00:00:00:00:00:0c",
              verdictOf(evidence, "domain").found);
}

TEST(DoctorVlan, AnIdMustBeTheExpectedOne) {
    Evidence evidence = healthySlave();
    for (Heard& frame : evidence.wire.frames) {
        frame.vlanId = 5;
    }
    EXPECT_EQ("24 Sync of VLAN 5 from 00:00:00:00:00:0a", verdictOf(evidence, "vlan").found);
    EXPECT_TRUE(contains(verdictOf(evidence, "vlan").next, "--vlan-id 5"));
    evidence.expected.vlanId = 5;
    EXPECT_EQ("none", firstGate(evidence));
    evidence.expected.vlanId = 0;
    EXPECT_EQ("vlan", firstGate(evidence));
}

TEST(DoctorTransport, IsZeroForNobody) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kSync, [](Heard& sync) { sync.message[0] = 0x00; });
    EXPECT_EQ("transport", firstGate(evidence));
}

TEST(DoctorMaster, IsMissedAndSaidWhatElseIsHeard) {
    Evidence evidence = healthySlave();
    removeFrames(evidence, kSync);
    EXPECT_EQ("master", firstGate(evidence));
    EXPECT_EQ("nobody sends Sync; heard: 3 Pdelay_Resp, 24 Follow_Up, 3 Pdelay_Resp_Follow_Up",
              verdictOf(evidence, "master").found);
    for (const unsigned int answer : {3U, 8U, 10U}) {
        removeFrames(evidence, answer);
    }
    EXPECT_EQ("nobody sends Sync; heard: nothing from others", verdictOf(evidence, "master").found);
}

TEST(DoctorMaster, TwoAreOneTooMany) {
    Evidence evidence = healthySlave();
    evidence.wire.frames.push_back(frameOf(kSync, kThirdMac, 1, 1.0));
    EXPECT_EQ("2 masters: 020000fffe00000a-1 (24), 020000fffe00000c-1 (1)",
              verdictOf(evidence, "master").found);
    Evidence other = healthyMaster();
    other.wire.frames.push_back(frameOf(kSync, kThirdMac, 1, 1.0));
    EXPECT_EQ("master", firstGate(other));
}

TEST(DoctorMaster, ThatSendsNothingIsToldSo) {
    Evidence evidence = healthyMaster();
    removeFrames(evidence, kSync);
    EXPECT_EQ("this node sends no Sync", verdictOf(evidence, "master").found);
}

TEST(DoctorFollowUp, OneInTenMayBeMissing) {
    Evidence evidence = healthySlave();
    int dropped = 0;
    const auto drop = [&dropped](int most) {
        return [&dropped, most](Heard& frame) { frame.vlanId = dropped++ < most ? 9 : -1; };
    };
    changeFrames(evidence, kFollowUp, drop(2));
    EXPECT_EQ("22 of 24 Sync have their Follow_Up", verdictOf(evidence, "follow-up").found);
    EXPECT_EQ("none", firstGate(evidence));
    dropped = 0;
    changeFrames(evidence, kFollowUp, drop(3));
    EXPECT_EQ("follow-up", firstGate(evidence));
}

TEST(DoctorFollowUp, TheLastSyncMayStillWaitForIts) {
    Evidence evidence = healthySlave();
    evidence.wire.frames.push_back(frameOf(kSync, kMasterMac, 124, 2.95));
    EXPECT_EQ("24 of 24 Sync have their Follow_Up", verdictOf(evidence, "follow-up").found);
}

TEST(DoctorFollowUp, TellsOneStepMastersAndStrangersApart) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kFollowUp, [](Heard& frame) { frame.message[29] = 2; });
    EXPECT_TRUE(contains(verdictOf(evidence, "follow-up").found,
                         "Follow_Up comes from 020000fffe00000a-2"));
    removeFrames(evidence, kFollowUp);
    changeFrames(evidence, kSync, [](Heard& sync) { sync.message[6] = 0; });
    EXPECT_TRUE(contains(verdictOf(evidence, "follow-up").found, "(one step)"));
}

TEST(DoctorSyncRate, MustBeThatOfTheOptions) {
    Evidence evidence = healthySlave();
    evidence.expected.syncIntervalMs = 250.0;
    EXPECT_EQ("sync-rate", firstGate(evidence));
    evidence.expected.syncIntervalMs = 180.0;
    EXPECT_EQ("none", firstGate(evidence));
}

TEST(DoctorSyncRate, SilenceAtTheEndIsAGap) {
    Evidence evidence = healthySlave();
    EXPECT_EQ("each 125.0 ms, largest gap 125.0 ms, expected 125.0",
              verdictOf(evidence, "sync-rate").found);
    evidence.wire.listenedS = 3.4;
    EXPECT_EQ("sync-rate", firstGate(evidence));
}

TEST(DoctorRate, IsThatOfTheFirstAndTheLastPair) {
    Evidence evidence = healthySlave();
    EXPECT_EQ("the master runs 0.0 ppm against this card", verdictOf(evidence, "rate").found);
    const auto slower = [&](unsigned long long ppm) {
        evidence = healthySlave();
        changeFrames(evidence, kSync, [ppm](Heard& sync) {
            const auto sentNs = static_cast<unsigned long long>(1e9 * sync.atS);
            *sync.rxNs += sentNs * ppm / 1000000;
        });
    };
    slower(240);
    EXPECT_EQ("none", firstGate(evidence));
    slower(260);
    EXPECT_EQ("rate", firstGate(evidence));
    EXPECT_TRUE(contains(verdictOf(evidence, "rate").found, "-259.9 ppm"));
}

TEST(DoctorReceiveStamps, MayLackOnceInAWhile) {
    Evidence evidence = healthySlave();
    int lost = 0;
    changeFrames(evidence, kSync,
                 [&lost](Heard& sync) { sync.rxNs = ++lost <= 12 ? std::nullopt : sync.rxNs; });
    EXPECT_EQ("12 of 24 Sync were stamped by the card",
              verdictOf(evidence, "receive-stamps").found);
    EXPECT_EQ("none", firstGate(evidence));
    changeFrames(evidence, kSync, [](Heard& sync) { sync.rxNs.reset(); });
    EXPECT_EQ("receive-stamps", firstGate(evidence));
}

}  // namespace
}  // namespace tsyn::doctor
