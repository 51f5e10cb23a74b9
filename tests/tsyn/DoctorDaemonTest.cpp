#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "base/Extended80.h"
#include "tests/tsyn/DoctorEvidence.h"
#include "tools/tsyn/doctor/DoctorReport.h"

namespace tsyn::doctor {
namespace {

template <typename Change>
void changeQuality(gPtpTimeDataStruct& record, Change change) {
    gPtpTimeQuality quality = qualityIn(record);
    change(quality);
    putQuality(record, quality);
}

/** A record as deployed daemons publish it, whose last pair was taken. */
void makeDeployed(Evidence& evidence) {
    gPtpTimeDataStruct& record = *evidence.record.after;
    putQuality(record, gPtpTimeQuality{});
    record.masterOffset = 1000;
    record.originTime = record.localTime - 1500;
    storeExtended(record.rateRatio1, 1.0000370L);
}

TEST(DoctorPeerDelay, HalfOfTheRequestsMustBeAnswered) {
    Evidence evidence = healthySlave();
    EXPECT_EQ("3 of 3 Pdelay_Req answered, by one", verdictOf(evidence, "peer-delay").found);
    removeFrames(evidence, kPdelayRespFollowUp);
    EXPECT_EQ("0 of 3 Pdelay_Req answered", verdictOf(evidence, "peer-delay").found);
    EXPECT_EQ("peer-delay", firstGate(evidence));
}

TEST(DoctorPeerDelay, AnswersToOthersDoNotCount) {
    Evidence evidence = healthySlave();
    changeFrames(evidence, kPdelayResp, [](Heard& frame) { frame.message[51] ^= 1; });
    EXPECT_EQ("peer-delay", firstGate(evidence));
    evidence = healthySlave();
    changeFrames(evidence, kPdelayResp, [](Heard& frame) { frame.message[31] ^= 0x80; });
    EXPECT_EQ("peer-delay", firstGate(evidence));
}

TEST(DoctorPeerDelay, TwoThatAnswerAreToldByTheirAddress) {
    Evidence evidence = healthySlave();
    const std::vector<Heard> frames = evidence.wire.frames;
    for (const Heard& frame : frames) {
        if ((frame.message[0] & 0xFU) == kPdelayResp) {
            Heard other = frame;
            other.source[5] = 0x0C;
            evidence.wire.frames.push_back(other);
        }
    }
    EXPECT_EQ("a Pdelay_Req is answered by 2: 00:00:00:00:00:0a, 00:00:00:00:00:0c",
              verdictOf(evidence, "peer-delay").found);
}

TEST(DoctorPeerDelay, WithoutRequestsTheDelayIsFixedOrMissing) {
    Evidence evidence = healthySlave();
    removeFrames(evidence, kPdelayReq);
    EXPECT_EQ(Outcome::kSkip, verdictOf(evidence, "peer-delay").outcome);
    EXPECT_EQ("fixed, 500 ns", verdictOf(evidence, "link-delay").found);
    evidence.record.after->linkDelay = 0;
    EXPECT_EQ("peer-delay", firstGate(evidence));
    evidence.expected.syncIntervalMs = 400.0;
    EXPECT_TRUE(contains(verdictOf(evidence, "peer-delay").found, "listen longer"));
}

TEST(DoctorLinkDelay, IsFixedOrMeasuredAsTheDaemonWasToldAndAsItsRecordShows) {
    Evidence evidence = healthySlave();
    evidence.used.fixedDelayNs = 0;
    removeFrames(evidence, kPdelayReq);
    EXPECT_EQ("measured, 500 ns", verdictOf(evidence, "link-delay").found);
    EXPECT_EQ("no Pdelay_Req of this node, whose delay is measured",
              verdictOf(evidence, "peer-delay").found);
    evidence.used.fixedDelayNs.reset();
    evidence.record.after->pdelayPhcTime = 1;
    EXPECT_EQ("measured, 500 ns", verdictOf(evidence, "link-delay").found);
    EXPECT_EQ("no Pdelay_Req of this node now; its delay was measured before",
              verdictOf(evidence, "peer-delay").found);
    evidence.record.after->pdelayPhcTime = 0;
    evidence.expected.syncIntervalMs = 400.0;
    EXPECT_EQ("500 ns, fixed or measured before", verdictOf(evidence, "link-delay").found);
    evidence.used.fixedDelayNs = 500;
    EXPECT_EQ("fixed, 500 ns", verdictOf(evidence, "link-delay").found);
    EXPECT_EQ("no Pdelay_Req of this node; its delay is fixed, 500 ns",
              verdictOf(evidence, "peer-delay").found);
}

TEST(DoctorLinkDelay, IsMeasuredWhereTheRequestsAreOfAnotherDomain) {
    Evidence evidence = healthySlave();
    evidence.expected.domain = 3;
    EXPECT_EQ("measured, 500 ns", verdictOf(evidence, "link-delay").found);
    EXPECT_EQ("this node's Pdelay_Req are of another domain or VLAN",
              verdictOf(evidence, "peer-delay").found);
}

TEST(DoctorPeerDelay, OfAMasterIsThatItAnswers) {
    Evidence evidence = healthyMaster();
    EXPECT_EQ("3 of 3 Pdelay_Req answered by this node", verdictOf(evidence, "peer-delay").found);
    removeFrames(evidence, kPdelayResp);
    EXPECT_EQ("peer-delay", firstGate(evidence));
}

TEST(DoctorTransmitStamps, HalfOfTheExchangesMayLackOne) {
    Evidence evidence = healthySlave();
    evidence.record.after->incompletePdelay = 1;
    EXPECT_EQ("none", firstGate(evidence));
    evidence.record.after->incompletePdelay = 2;
    EXPECT_EQ("transmit-stamps", firstGate(evidence));
    evidence.record.before->incompletePdelay = 1;
    EXPECT_EQ("none", firstGate(evidence));
}

TEST(DoctorTransmitStamps, OfAMasterStandInItsFollowUps) {
    Evidence evidence = healthyMaster();
    EXPECT_EQ("24 of 24 Sync were stamped and followed up",
              verdictOf(evidence, "transmit-stamps").found);
    changeFrames(evidence, kFollowUp,
                 [](Heard& frame) { std::memset(frame.message.data() + 34, 0, 10); });
    EXPECT_EQ("transmit-stamps", firstGate(evidence));
    removeFrames(evidence, kFollowUp);
    EXPECT_EQ("transmit-stamps", firstGate(evidence));
}

TEST(DoctorLinkDelay, IsTakenFrom1To49999Ns) {
    Evidence evidence = healthySlave();
    for (const long long delayNs : {1LL, 49999LL}) {
        evidence.record.after->linkDelay = delayNs;
        EXPECT_EQ("none", firstGate(evidence)) << delayNs;
    }
    for (const long long delayNs : {-1LL, 0LL, 50000LL}) {
        evidence.record.after->linkDelay = delayNs;
        EXPECT_EQ("link-delay", firstGate(evidence)) << delayNs;
    }
}

TEST(DoctorLinkDelay, IsNotJudgedWhereNobodyAnswers) {
    Evidence evidence = healthySlave();
    evidence.record.after->linkDelay = 0;
    removeFrames(evidence, kPdelayResp);
    EXPECT_EQ("no Pdelay_Req was answered", verdictOf(evidence, "link-delay").found);
}

TEST(DoctorLinkDelay, RefusedMeasurementsCount) {
    Evidence evidence = healthySlave();
    changeQuality(*evidence.record.after, [](gPtpTimeQuality& q) { q.unusedExchanges = 2; });
    EXPECT_EQ("500 ns, but 2 of 3 new measurements were refused",
              verdictOf(evidence, "link-delay").found);
}

TEST(DoctorDaemon, ThatMayBeHiddenIsNeitherGoneNorThere) {
    Evidence evidence = healthySlave();
    evidence.processes.clear();
    evidence.record.before = evidence.record.after;
    evidence.record.ownerIsHidden = true;
    EXPECT_EQ(Outcome::kSkip, verdictOf(evidence, "daemon").outcome);
    evidence.record.after->acceptedSync += 1;
    EXPECT_EQ("its record is kept up to date", verdictOf(evidence, "daemon").found);
}

TEST(DoctorRecord, MustTakeTheSyncThatComes) {
    Evidence evidence = healthySlave();
    EXPECT_TRUE(contains(
        verdictOf(evidence, "record").found,
        "23 Sync taken, 0 rejected, time 0.0 s old, synchronised, master none, bound 0 ns"));
    evidence.record.before = evidence.record.after;
    EXPECT_EQ("record", firstGate(evidence));
    evidence.record.before->rejectedSync = 4U - 24U;
    evidence.record.after->rejectedSync = 4;
    EXPECT_TRUE(contains(verdictOf(evidence, "record").found, "0 Sync taken, 24 rejected"));
    EXPECT_TRUE(contains(verdictOf(evidence, "record").next, "why it rejects"));
}

TEST(DoctorRecord, IsReadByWhoMayNotHearTheWire) {
    Evidence evidence = healthySlave();
    evidence.wire = WireFacts{};
    evidence.wire.problem = "no raw socket (Operation not permitted)";
    EXPECT_EQ(Outcome::kPass, verdictOf(evidence, "record").outcome);
    EXPECT_EQ(Outcome::kSkip, verdictOf(evidence, "peer-delay").outcome);
    evidence.interface.hasCarrier = false;
    EXPECT_EQ("no link", verdictOf(evidence, "record").found);
}

TEST(DoctorRecord, OnlySynchronisedWillDo) {
    for (const TSynTimeState state :
         {TSYN_STATE_NO_MASTER, TSYN_STATE_ACQUIRING, TSYN_STATE_HOLDOVER, TSYN_STATE_LOST}) {
        Evidence evidence = healthySlave();
        changeQuality(*evidence.record.after, [state](gPtpTimeQuality& q) { q.state = state; });
        EXPECT_EQ("record", firstGate(evidence)) << state;
    }
}

TEST(DoctorRecord, OfADeployedDaemonTellsByItsLastPair) {
    Evidence evidence = healthySlave();
    makeDeployed(evidence);
    EXPECT_TRUE(contains(verdictOf(evidence, "record").found, "rate 37.0 ppm"));
    evidence.record.after->originTime -= 2000000;
    EXPECT_EQ("record", firstGate(evidence));
    makeDeployed(evidence);
    storeExtended(evidence.record.after->rateRatio1, 1.0003L);
    EXPECT_EQ("record", firstGate(evidence));
}

TEST(DoctorRecord, OfAMasterMovesWithItsSync) {
    Evidence evidence = healthyMaster();
    evidence.record.before->sequenceId = 0xFFFF;
    evidence.record.after->sequenceId = 20;
    EXPECT_EQ("21 Sync published in 3.0 s", verdictOf(evidence, "record").found);
    evidence.record.after->sequenceId = 0xFFFF;
    EXPECT_EQ("record", firstGate(evidence));
}

TEST(DoctorReport, HasALineForEachGateAndNamesTheFirstFailedLast) {
    Evidence evidence = healthySlave();
    evidence.interface.takesEverything = false;
    removeFrames(evidence, kSync);
    const std::string text = doctorText(evidence, judgeAll(evidence), false);
    EXPECT_EQ(0U, text.find("PASS  interface        eth1 has index 3"));
    EXPECT_TRUE(contains(text, "\nFAIL  reception        the card drops"));
    EXPECT_TRUE(contains(text, "\n                       -> 'ip link set eth1 promisc on'"));
    EXPECT_TRUE(contains(text, "\nsynchronised, yet reception failed: the card drops"));
    EXPECT_FALSE(contains(text, "\033"));
    EXPECT_TRUE(contains(doctorText(evidence, judgeAll(evidence), true),
                         "\033[1;31mFAIL\033[0m  reception"));
}

/** The words before the gate that failed, here the capabilities. */
std::string summaryFor(Evidence evidence) {
    evidence.capabilities = {};
    const std::string summary = summaryOf(evidence, judgeAll(evidence));
    return summary.substr(0, summary.find("capabilities"));
}

TEST(DoctorReport, SaysWhetherThereIsTimeWhateverFailed) {
    Evidence evidence = healthySlave();
    EXPECT_EQ("synchronised, yet ", summaryFor(evidence));
    EXPECT_EQ("sending, yet ", summaryFor(healthyMaster()));
    changeQuality(*evidence.record.after, [](gPtpTimeQuality& q) { q.state = 1; });
    EXPECT_EQ("not synchronised, since: ", summaryFor(evidence));
    changeQuality(*evidence.record.after, [](gPtpTimeQuality& q) { q.state = 3; });
    EXPECT_EQ("holdover, since: ", summaryFor(evidence));
    Evidence dead = healthySlave();
    dead.record.before = dead.record.after;
    EXPECT_EQ("synchronised, yet ", summaryFor(dead));
    dead.record.afterNs += 2000000000;  // a process that hangs
    EXPECT_EQ("not synchronised, since: ", summaryFor(dead));
    dead.record.afterNs -= 2000000000;
    dead.processes.clear();
    dead.record.ownerLives = false;
    EXPECT_EQ("not synchronised, since: ", summaryFor(dead));
    Evidence silent = healthyMaster();
    silent.record.before = silent.record.after;
    silent.record.afterNs += 2000000000;
    EXPECT_EQ("not sending, since: ", summaryFor(silent));
    Evidence hidden = healthySlave();
    hidden.record.problem = "it cannot be read";
    hidden.record.before.reset();
    EXPECT_EQ("state not known; ", summaryFor(hidden));
}

TEST(DoctorReport, BreaksLinesAtTheEndOfATerminal) {
    Evidence evidence = healthySlave();
    for (unsigned int type = 0; type < 16; ++type) {
        evidence.wire.frames.push_back(frameOf(type, kMasterMac, 1, 1.0));
    }
    evidence.interface.takesEverything = false;
    std::istringstream text(doctorText(evidence, judgeAll(evidence), false));
    std::size_t lines = 0;
    for (std::string line; std::getline(text, line) && line.find("synchronised,") != 0; ++lines) {
        EXPECT_GE(80U, line.size()) << line;
        EXPECT_NE(' ', line.back()) << line;
    }
    EXPECT_LT(gates().size() + 3, lines);
    EXPECT_TRUE(contains(doctorText(evidence, judgeAll(evidence), false),
                         "\n                       1 Management, 1 type 14, 1 type 15 in 3.0 s\n"))
        << doctorText(evidence, judgeAll(evidence), false);
}

TEST(DoctorReport, JsonSaysTheSame) {
    Evidence evidence = healthySlave();
    const auto whole = nlohmann::json::parse(doctorJson(evidence, judgeAll(evidence)));
    EXPECT_TRUE(whole["ok"]);
    EXPECT_TRUE(whole["first_failed"].is_null());
    EXPECT_EQ("all is well: 22 gates passed, 1 skipped", whole["summary"]);
    evidence.interface.hasCarrier = false;
    const auto failed = nlohmann::json::parse(doctorJson(evidence, judgeAll(evidence)));
    EXPECT_FALSE(failed["ok"]);
    EXPECT_EQ("carrier", failed["first_failed"]);
    EXPECT_EQ("synchronised", failed["state"]);
    EXPECT_EQ("synchronised, yet carrier failed: no carrier", failed["summary"]);
    const auto& gate = failed["gates"][1];
    EXPECT_EQ("carrier", gate["gate"]);
    EXPECT_EQ("fail", gate["result"]);
    EXPECT_EQ("no carrier", gate["found"]);
    EXPECT_TRUE(gate["next"].is_string());
    EXPECT_TRUE(failed["gates"][0]["next"].is_null());
}

}  // namespace
}  // namespace tsyn::doctor
