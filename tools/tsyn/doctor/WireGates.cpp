#include "tools/tsyn/doctor/WireGates.h"

#include <algorithm>
#include <cstdio>

#include "tools/tsyn/check/PtpFields.h"
#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/Numbers.h"
#include "tools/tsyn/doctor/Silence.h"
#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

const char* neededName(const Evidence& evidence) {
    return evidence.expected.master ? "Pdelay_Req" : "Sync";
}

/** One property of a frame, as text. */
using Describe = std::string (*)(const Heard& frame);

std::string versionText(const Heard& frame) {
    const unsigned int byte = frame.message[ptp::kVersionAt];
    return "PTP version " + std::to_string(byte & 0xF) + "." + std::to_string(byte >> 4);
}

std::string domainName(unsigned int domain) {
    return "domain " + std::to_string(domain);
}

std::string domainText(const Heard& frame) {
    return domainName(frame.message[ptp::kDomainNumberAt]);
}

std::string vlanText(int id) {
    return id < 0 ? "no VLAN" : "VLAN " + std::to_string(id);
}

std::string vlanOf(const Heard& frame) {
    return vlanText(frame.vlanId);
}

std::string transportText(const Heard& frame) {
    return "transportSpecific " + std::to_string(frame.message[ptp::kMessageTypeAt] >> 4);
}

/** A frame that was let through by all stages before `stage` and not by it; null: none. */
const Heard* firstStopped(const Frames& before, const Frames& after) {
    const auto found = std::find_if(before.begin(), before.end(), [&](const Heard* frame) {
        return std::find(after.begin(), after.end(), frame) == after.end();
    });
    return found == before.end() ? nullptr : *found;
}

/** Networks lie side by side: whose request is of another one asks another master. */
bool isForOthers(const Evidence& evidence, Stage stage) {
    return evidence.expected.master && (stage == Stage::kDomain || stage == Stage::kVlan);
}

/** Of the frames that came this far, some must get past the next stage. */
Verdict judgeStage(const Evidence& evidence, Stage stage, Describe describe,
                   std::string (*next)(const Evidence&, const Heard&)) {
    const auto previous = static_cast<Stage>(static_cast<int>(stage) - 1);
    const Frames before = needed(evidence, previous);
    const Frames after = needed(evidence, stage);
    if (before.empty()) {
        return skipped(std::string("no ") + neededName(evidence) + " got this far");
    }
    const auto stoppedText = [&](const Heard& frame) {
        return std::to_string(before.size() - after.size()) + " " + neededName(evidence) + " of " +
               describe(frame) + " from " + macText(frame.source);
    };
    if (after.empty() && isForOthers(evidence, stage)) {
        return skipped(stoppedText(*before.front()) + ", which is for another master");
    }
    if (after.empty()) {
        return failed(stoppedText(*before.front()), next(evidence, *before.front()));
    }
    const Heard* const stopped = firstStopped(before, after);
    return passed(describe(*after.front()) +
                  (stopped == nullptr ? "" : "; ignored: " + stoppedText(*stopped)));
}

/** The daemon uses another one than was asked for, so that nothing here is about it. */
template <typename Value, typename Name>
std::optional<Verdict> wrongAsked(const std::optional<Value>& asked,
                                  const std::optional<Value>& used, const char* option, Name name) {
    if (!asked || !used || *asked == *used) {
        return {};
    }
    return failed(name(*asked) + " was asked for, but the daemon uses " + name(*used),
                  "give doctor " + std::string(option) + " " + std::to_string(*used) +
                      ", or nothing; or run the daemon with " + option + " " +
                      std::to_string(*asked));
}

std::string nextForVersion(const Evidence& evidence, const Heard& frame) {
    if (ptp::version(frame.message.data()) == 2 && !evidence.expected.anyMinorVersion) {
        return "run the daemon with --profile standard or --switch anyMinorVersion=1: deployed "
               "nodes refuse a minor version";
    }
    return "have the peer send PTP version 2; nothing here takes another";
}

std::string nextForDomain(const Evidence& evidence, const Heard& frame) {
    constexpr unsigned int kLastDomain = 15;
    const unsigned int domain = frame.message[ptp::kDomainNumberAt];
    const std::string have = "have the peer use domain " + std::to_string(evidence.expected.domain);
    return domain > kLastDomain ? have + "; none above " + std::to_string(kLastDomain) + " is taken"
                                : "run with --domain " + std::to_string(domain) + ", or " + have;
}

std::string nextForVlan(const Evidence& evidence, const Heard& frame) {
    return "run with --vlan-id " + std::to_string(frame.vlanId) + ", or have the peer send " +
           vlanText(evidence.expected.vlanId);
}

std::string nextForTransport(const Evidence&, const Heard&) {
    return "have the peer use transportSpecific (majorSdoId) 1, that of IEEE 802.1AS; in ptp4l "
           "'transportSpecific 0x1'";
}

std::string portList(const std::map<std::string, unsigned int>& ports) {
    std::string text;
    for (const auto& [port, count] : ports) {
        text += (text.empty() ? "" : ", ") + port + " (" + std::to_string(count) + ")";
    }
    return text;
}

Verdict judgeMastersBesideUs(const Evidence& evidence) {
    const Frames own = takenOfType(evidence, ptp::kSync, true);
    const auto others = portsOf(takenOfType(evidence, ptp::kSync, false));
    if (!others.empty()) {
        return failed("this node is the master, and Sync comes from " + portList(others),
                      "let one master send on this domain and VLAN; --role slave looks at this "
                      "node as a slave");
    }
    if (own.empty() && !daemonLives(evidence)) {
        return skipped("no daemon sends Sync here");
    }
    if (own.empty()) {
        return silentMaster(evidence);
    }
    return passed("this node, " + portText(*own.front()) + ", alone sends Sync");
}

/** Of Follow_Ups whose Sync nobody sent under the same name, the port. */
std::string strangerIn(const Evidence& evidence, const Frames& syncs) {
    for (const Heard* followUp : takenOfType(evidence, ptp::kFollowUp, false)) {
        if (portText(*followUp) != portText(*syncs.front())) {
            return portText(*followUp);
        }
    }
    return {};
}

bool isTwoStep(const Heard& sync) {
    constexpr std::size_t kFlagsAt = 6;
    return (sync.message[kFlagsAt] & 0x02) != 0;
}

struct CrcCount {
    unsigned int followUps = 0;
    unsigned int right = 0;
    unsigned int wrong = 0;
    std::array<unsigned int, 16> rightOf{}; /**< Follow_Ups of each entry of the list */
    std::array<unsigned int, 16> wrongOf{};
    std::string malformed;
};

void countCrcs(const Heard& followUp, const DataIdList& list, CrcCount& count) {
    if (ptp::messageLength(followUp.message.data()) > followUp.message.size() ||
        ptp::messageLength(followUp.message.data()) < ptp::kFollowUpTlvAt) {
        return;
    }
    const FollowUpCheck check = checkFollowUpTlvs(followUp.message.data(), list);
    count.followUps += check.hasAutosarTlv ? 1 : 0;
    unsigned int right = 0;
    unsigned int wrong = 0;
    for (std::size_t field = 0; field < kCrcFieldCount; ++field) {
        right += check.right[field];
        wrong += check.wrong[field];
    }
    count.right += right;
    count.wrong += wrong;
    const unsigned int entry = sequenceOf(followUp) % count.rightOf.size();
    count.rightOf[entry] += wrong == 0 && right != 0 ? 1 : 0;
    count.wrongOf[entry] += wrong != 0 ? 1 : 0;
    for (const Defect& defect : check.defects) {
        if (defect.kind != DefectKind::kCrc && count.malformed.empty()) {
            count.malformed = defect.part + ": " + defect.field + " " + defect.text;
        }
    }
}

/** The entries that are wrong each time, when that explains all that is wrong; else empty. */
std::string wrongEntries(const CrcCount& count) {
    std::string text;
    bool repeated = false;
    for (std::size_t entry = 0; entry < count.wrongOf.size(); ++entry) {
        if (count.wrongOf[entry] == 0) {
            continue;
        }
        if (count.rightOf[entry] != 0) {
            return {};
        }
        repeated = repeated || count.wrongOf[entry] > 1;
        text += (text.empty() ? "" : ", ") + std::to_string(entry);
    }
    return repeated ? text : std::string();
}

Verdict judgeCounted(const Evidence& evidence, const CrcCount& count) {
    const std::string found = std::to_string(count.wrong) + " of " +
                              std::to_string(count.right + count.wrong) + " CRCs in " +
                              std::to_string(count.followUps) + " Follow_Up wrong";
    if (count.wrong == 0) {
        return passed("all " + std::to_string(count.right) + " CRCs right");
    }
    if (count.right == 0) {
        return evidence.expected.dataIds
                   ? failed(found + " with this list",
                            "give doctor and daemon the DataIDList that the master has; if they "
                            "have it, see that the master computes CRCs (--tx-crc-mode 1)")
                   : failed(found + " without a DataIDList",
                            "give doctor and daemon the DataIDList of the master: --data-id-list");
    }
    const std::string entries = wrongEntries(count);
    if (!entries.empty()) {
        return failed(found + ", all with sequenceId modulo 16 of " + entries,
                      "compare these entries, counted from 0, with the master's DataIDList");
    }
    return failed(found,
                  "frames are damaged on the way or the master's CRCs are: capture, and look with "
                  "'tsyn check' which field it is");
}

}  // namespace

Verdict judgeFrames(const Evidence& evidence) {
    const WireFacts& wire = evidence.wire;
    const std::string heard = countText(evidence, false);
    const std::string own = countText(evidence, true);
    const std::string within = " in " + decimal(wire.listenedS, 1) + " s";
    const std::string beyond =
        wire.unkept == 0 ? std::string()
                         : " and " + std::to_string(wire.unkept) + " that were only counted";
    if (!heard.empty()) {
        return passed(heard + beyond + within);
    }
    if (const std::optional<Verdict> wrong = wrongRole(evidence)) {
        return *wrong;
    }
    if (evidence.expected.master && daemonLives(evidence)) {
        return passed("nothing from others" + within + ", own: " + (own.empty() ? "none" : own));
    }
    return failed("no frame of EtherType 0x88F7" + within +
                      (own.empty() ? "" : " but this node's own (" + own + ")"),
                  "see that the master runs and is on this cable; a switch between must be a "
                  "time-aware bridge, since others keep 01:80:c2:00:00:0e to themselves");
}

Verdict judgeVersion(const Evidence& evidence) {
    return judgeStage(evidence, Stage::kVersion, versionText, nextForVersion);
}

Verdict judgeDomain(const Evidence& evidence) {
    const auto wrong =
        wrongAsked(evidence.asked.domain, evidence.used.domain, "--domain", domainName);
    return wrong ? *wrong : judgeStage(evidence, Stage::kDomain, domainText, nextForDomain);
}

Verdict judgeVlan(const Evidence& evidence) {
    const auto wrong =
        wrongAsked(evidence.asked.vlanId, evidence.used.vlanId, "--vlan-id", vlanText);
    return wrong ? *wrong : judgeStage(evidence, Stage::kVlan, vlanOf, nextForVlan);
}

Verdict judgeTransport(const Evidence& evidence) {
    return judgeStage(evidence, Stage::kTransport, transportText, nextForTransport);
}

Verdict judgeMaster(const Evidence& evidence) {
    if (const std::optional<Verdict> wrong = wrongRole(evidence)) {
        return *wrong;
    }
    if (evidence.expected.master) {
        return judgeMastersBesideUs(evidence);
    }
    if (!ofType(evidence, ptp::kSync, true).empty()) {
        return failed("this node itself sends Sync",
                      "its daemon is a master: look with --role master, or run it as a slave");
    }
    if (needed(evidence, Stage::kAny).empty()) {
        const std::string heard = countText(evidence, false);
        return failed(
            "nobody sends Sync; heard: " + (heard.empty() ? "nothing from others" : heard),
            "see that the peer is a master, may send (--tx-mode 1) and has a global time "
            "base (--status global)");
    }
    const auto ports = portsOf(needed(evidence, Stage::kTransport));
    if (ports.empty()) {
        return skipped("no Sync got this far");
    }
    if (ports.size() > 1) {
        return failed(std::to_string(ports.size()) + " masters: " + portList(ports),
                      "let one master send on this domain and VLAN; until then the standard "
                      "profile believes the first heard, a deployed slave all of them");
    }
    return passed("one, " + ports.begin()->first);
}

Verdict judgeFollowUp(const Evidence& evidence) {
    constexpr double kShare = 0.9;
    const Frames syncs = answerable(evidence, masterSyncs(evidence));
    if (evidence.expected.master || syncs.empty()) {
        return skipped(evidence.expected.master ? "a master's own are judged by its stamps"
                                                : "no Sync to be followed up");
    }
    const Frames followUps = followUpsOf(evidence, syncs, false);
    const auto paired = static_cast<std::size_t>(
        followUps.size() - std::count(followUps.begin(), followUps.end(), nullptr));
    const std::string found = std::to_string(paired) + " of " + std::to_string(syncs.size()) +
                              " Sync have their Follow_Up";
    if (static_cast<double>(paired) >= kShare * static_cast<double>(syncs.size())) {
        return passed(found);
    }
    const std::string stranger = strangerIn(evidence, syncs);
    if (!stranger.empty()) {
        return failed(found + "; Follow_Up comes from " + stranger,
                      "have the master send both under one port identity");
    }
    if (!isTwoStep(*syncs.front())) {
        return failed(found + "; the Sync says that none will come (one step)",
                      "switch the master to two steps");
    }
    return failed(found,
                  "the master gets no transmit stamps, or Follow_Up is lost on the way: run 'tsyn "
                  "doctor --role master' on the master");
}

Verdict judgeSyncRate(const Evidence& evidence) {
    constexpr double kFactor = 1.5;
    constexpr double kGapIntervals = 3.0;
    const Frames syncs = masterSyncs(evidence);
    if (syncs.size() < 2) {
        return skipped(syncs.empty() ? "no Sync got this far"
                                     : "one Sync tells no rate; listen longer with --listen");
    }
    const double expectedS = evidence.expected.syncIntervalMs / 1000.0;
    // What is missing at either end of the listening is a gap as well.
    double largestS = evidence.wire.listenedS - syncs.back()->atS;
    double beforeS = 0.0;
    for (const Heard* sync : syncs) {
        largestS = std::max(largestS, sync->atS - beforeS);
        beforeS = sync->atS;
    }
    const double meanS =
        (syncs.back()->atS - syncs.front()->atS) / static_cast<double>(syncs.size() - 1);
    const std::string found = "each " + decimal(1000.0 * meanS, 1) + " ms, largest gap " +
                              decimal(1000.0 * largestS, 1) + " ms, expected " +
                              decimal(1000.0 * expectedS, 1);
    if (meanS > kFactor * expectedS || meanS < expectedS / kFactor) {
        return failed(found, "give both sides one interval: --sync-interval");
    }
    if (largestS > kGapIntervals * expectedS) {
        return failed(found,
                      "Sync is lost on the way or the master pauses: look at the counters "
                      "of the link ('ip -s link') and the load of the master");
    }
    return passed(found);
}

Verdict judgeCrc(const Evidence& evidence) {
    const Frames syncs = masterSyncs(evidence);
    CrcCount count;
    for (const Heard* followUp : followUpsOf(evidence, syncs, evidence.expected.master)) {
        if (followUp != nullptr) {
            countCrcs(*followUp, evidence.expected.dataIds.value_or(DataIdList{}), count);
        }
    }
    if (!count.malformed.empty()) {
        return failed("malformed TLV in a Follow_Up: " + count.malformed,
                      "capture, and look with 'tsyn check' what the master sends");
    }
    if (count.right + count.wrong == 0) {
        return skipped(count.followUps == 0 ? "no AUTOSAR sub-TLVs are sent"
                                            : "the AUTOSAR sub-TLVs carry no CRCs");
    }
    return judgeCounted(evidence, count);
}

}  // namespace tsyn::doctor
