#include "tests/tsyn/DoctorEvidence.h"

#include <linux/net_tstamp.h>

#include <algorithm>
#include <cstring>

namespace tsyn::doctor {
namespace {

constexpr unsigned long long kEpochNs = 1700000000000000000ULL;

void store(std::vector<unsigned char>& bytes, std::size_t at, unsigned long long value,
           std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        bytes[at + i] = static_cast<unsigned char>(value >> 8 * (size - 1 - i));
    }
}

/** A clock identity and port 1, both told by the last byte of the address. */
void storePort(std::vector<unsigned char>& bytes, std::size_t at, unsigned char mac) {
    store(bytes, at, 0x020000FFFE000000ULL + mac, 8);
    store(bytes, at + 8, 1, 2);
}

void addPair(Evidence& evidence, unsigned int sequenceId, double atS) {
    const auto sentNs = static_cast<unsigned long long>(1e9 * atS);
    Heard sync = frameOf(kSync, kMasterMac, sequenceId, atS);
    sync.rxNs = 5000000000ULL + sentNs;
    sync.message[6] = 0x02;
    Heard followUp = frameOf(kFollowUp, kMasterMac, sequenceId, atS + 0.001);
    store(followUp.message, 2, 44, 2);
    store(followUp.message, 34, (kEpochNs + sentNs) / 1000000000, 6);
    store(followUp.message, 40, (kEpochNs + sentNs) % 1000000000, 4);
    evidence.wire.frames.insert(evidence.wire.frames.end(), {sync, followUp});
}

void addExchange(Evidence& evidence, unsigned int sequenceId, double atS) {
    Heard request = frameOf(kPdelayReq, kOwnMac, sequenceId, atS);
    request.rxNs = 1;
    evidence.wire.frames.push_back(request);
    for (const unsigned int type : {kPdelayResp, kPdelayRespFollowUp}) {
        Heard response = frameOf(type, kMasterMac, sequenceId, atS + 0.001);
        storePort(response.message, 44, kOwnMac);
        evidence.wire.frames.push_back(response);
    }
}

void setOwn(Evidence& evidence, unsigned char mac) {
    evidence.interface.address[5] = mac;
    for (Heard& frame : evidence.wire.frames) {
        frame.isOwn = frame.source[5] == mac;
    }
}

gPtpTimeDataStruct recordAt(unsigned int syncs) {
    gPtpTimeDataStruct record{};
    record.linkDelay = 500;
    record.acceptedSync = syncs;
    record.sequenceId = syncs;
    record.localTime = 5000000000ULL + 125000000ULL * syncs;
    gPtpTimeQuality quality{};
    quality.magic = kTimeQualityMagic;
    quality.layout = kTimeQualityLayout;
    quality.state = TSYN_STATE_SYNCHRONISED;
    quality.ownerPid = kDaemonPid;
    quality.voidAfterNs = 68000000000;
    putQuality(record, quality);
    return record;
}

}  // namespace

Heard frameOf(unsigned int type, unsigned char mac, unsigned int sequenceId, double atS) {
    Heard frame;
    frame.atS = atS;
    frame.source[5] = mac;
    frame.message.resize(60);
    frame.message[0] = static_cast<unsigned char>(0x10 | type);
    frame.message[1] = 0x02;
    store(frame.message, 2, 54, 2);
    storePort(frame.message, 20, mac);
    store(frame.message, 30, sequenceId, 2);
    return frame;
}

Evidence healthySlave() {
    Evidence evidence;
    evidence.expected.interfaceName = "eth1";
    evidence.capabilities = {true, true, false};
    evidence.interface.index = 3;
    evidence.interface.isUp = evidence.interface.hasCarrier = true;
    evidence.interface.speedMbit = 1000;
    evidence.interface.takesEverything = true;
    evidence.clock.index = 1;
    evidence.stamping.sends = true;
    evidence.stamping.receiveFilter = HWTSTAMP_FILTER_PTP_V2_EVENT;
    Process daemon;
    daemon.pid = kDaemonPid;
    daemon.name = "tsyn";
    daemon.isVisible = daemon.mayWriteClock = daemon.writesRecord = true;
    evidence.processes = {daemon};
    evidence.wire.listenedS = 3.0;
    for (unsigned int i = 0; i < 24; ++i) {
        addPair(evidence, 100 + i, 0.02 + 0.125 * i);
    }
    for (unsigned int i = 0; i < 3; ++i) {
        addExchange(evidence, 7 + i, 0.5 + i);
    }
    setOwn(evidence, kOwnMac);
    evidence.record = {true, "", recordAt(1), recordAt(24), 8000000000, 3.0, kDaemonPid, true};
    return evidence;
}

Evidence healthyMaster() {
    Evidence evidence = healthySlave();
    evidence.expected.master = true;
    setOwn(evidence, kMasterMac);
    for (auto* record : {&evidence.record.before, &evidence.record.after}) {
        (*record)->systemTime = (*record)->localTime;
    }
    return evidence;
}

void removeFrames(Evidence& evidence, unsigned int type) {
    std::vector<Heard>& frames = evidence.wire.frames;
    frames.erase(
        std::remove_if(frames.begin(), frames.end(),
                       [type](const Heard& frame) { return (frame.message[0] & 0xFU) == type; }),
        frames.end());
}

std::string firstGate(const Evidence& evidence) {
    const std::vector<Judgement> judgements = judgeAll(evidence);
    const Judgement* const failed = firstFailed(judgements);
    return failed == nullptr ? "none" : failed->gate;
}

Verdict verdictOf(const Evidence& evidence, const std::string& gate) {
    for (const Judgement& judgement : judgeAll(evidence)) {
        if (judgement.gate == gate) {
            return judgement.verdict;
        }
    }
    return skipped("no such gate");
}

gPtpTimeQuality qualityIn(const gPtpTimeDataStruct& record) {
    gPtpTimeQuality quality{};
    std::memcpy(&quality, reinterpret_cast<const unsigned char*>(&record) + kTimeQualityOffset,
                sizeof quality);
    return quality;
}

void putQuality(gPtpTimeDataStruct& record, const gPtpTimeQuality& quality) {
    std::memcpy(reinterpret_cast<unsigned char*>(&record) + kTimeQualityOffset, &quality,
                sizeof quality);
}

}  // namespace tsyn::doctor
