#include "tools/tsyn/doctor/Gates.h"

#include <algorithm>

#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/DaemonGates.h"
#include "tools/tsyn/doctor/RecordGates.h"
#include "tools/tsyn/doctor/WireGates.h"

namespace tsyn::doctor {
namespace {

std::string none(const Evidence&) {
    return {};
}

std::string noInterface(const Evidence& evidence) {
    return evidence.interface.index == 0 ? "no interface" : "";
}

std::string noLink(const Evidence& evidence) {
    const std::string reason = noInterface(evidence);
    const bool isLinked = evidence.interface.isUp && evidence.interface.hasCarrier;
    return reason.empty() && !isLinked ? "no link" : reason;
}

std::string nothingToHear(const Evidence& evidence) {
    const std::string reason = noLink(evidence);
    return reason.empty() ? evidence.wire.problem : reason;
}

std::string nothingHeard(const Evidence& evidence) {
    std::string reason = nothingToHear(evidence);
    return reason.empty() && evidence.wire.frames.empty() ? "no frames heard" : reason;
}

/** What a master does not send is worth a word where it is quiet all over. */
std::string nothingToTellMaster(const Evidence& evidence) {
    return evidence.expected.master ? nothingToHear(evidence) : nothingHeard(evidence);
}

/** The record can be read by who may not hear the wire. */
std::string noRecord(const Evidence& evidence) {
    std::string reason = noLink(evidence);
    if (!reason.empty()) {
        return reason;
    }
    if (!daemonLives(evidence)) {
        return "no daemon";
    }
    return evidence.record.before && evidence.record.after ? "" : "no record that can be read";
}

std::string noDaemon(const Evidence& evidence) {
    std::string reason = nothingToHear(evidence);
    return reason.empty() ? noRecord(evidence) : reason;
}

}  // namespace

// What a gate is about must be in order before the gates below it can be: the first that fails is
// the one to mend. A request that two answer also looks like one without stamps, hence their order.
const std::vector<Gate>& gates() {
    static const std::vector<Gate> all = {
        {"interface", none, judgeInterface},
        {"carrier", noInterface, judgeCarrier},
        {"capabilities", none, judgeCapabilities},
        {"clock", noInterface, judgeClock},
        {"steering", noInterface, judgeSteering},
        {"timestamping", noInterface, judgeTimestamping},
        {"reception", noInterface, judgeReception},
        {"frames", nothingToHear, judgeFrames},
        {"version", nothingHeard, judgeVersion},
        {"domain", nothingHeard, judgeDomain},
        {"vlan", nothingHeard, judgeVlan},
        {"transport", nothingHeard, judgeTransport},
        {"master", nothingToTellMaster, judgeMaster},
        {"follow-up", nothingHeard, judgeFollowUp},
        {"sync-rate", nothingHeard, judgeSyncRate},
        {"crc", nothingHeard, judgeCrc},
        {"daemon", noInterface, judgeDaemon},
        {"peer-delay", noDaemon, judgePeerDelay},
        {"transmit-stamps", noDaemon, judgeTransmitStamps},
        {"receive-stamps", nothingHeard, judgeReceiveStamps},
        {"rate", nothingHeard, judgeRate},
        {"link-delay", noDaemon, judgeLinkDelay},
        {"record", noRecord, judgeRecord},
    };
    return all;
}

std::vector<Judgement> judgeAll(const Evidence& evidence) {
    std::vector<Judgement> judgements;
    for (const Gate& gate : gates()) {
        const std::string obstacle = gate.obstacle(evidence);
        judgements.push_back(
            {gate.name, obstacle.empty() ? gate.judge(evidence) : skipped(obstacle)});
    }
    return judgements;
}

const Judgement* firstFailed(const std::vector<Judgement>& judgements) {
    const auto found = std::find_if(
        judgements.begin(), judgements.end(),
        [](const Judgement& judgement) { return judgement.verdict.outcome == Outcome::kFail; });
    return found == judgements.end() ? nullptr : &*found;
}

}  // namespace tsyn::doctor
