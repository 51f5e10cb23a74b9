#include "tools/tsyn/doctor/DaemonGates.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "include/gPtpTimeQuality.h"
#include "tools/tsyn/check/PtpFields.h"
#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/Numbers.h"
#include "tools/tsyn/doctor/Rise.h"
#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

constexpr double kSyncsPerRequest = 8.0;
constexpr double kRateLimitPpm = 250.0;

/** An answer to a request: from whom, and whether its times followed. */
struct Answers {
    std::set<std::string> responders;
    bool isComplete = false;
};

bool answers(const Heard& response, const Heard& request) {
    return requesterText(response) == portText(request) &&
           sequenceOf(response) == sequenceOf(request);
}

/** The answering port is told by its address too: deployed nodes answer under a borrowed number. */
Answers answersTo(const Evidence& evidence, const Heard& request, bool byThisNode) {
    Answers found;
    for (const Heard* response : takenOfType(evidence, ptp::kPdelayResp, byThisNode)) {
        if (answers(*response, request)) {
            found.responders.insert(macText(response->source));
        }
    }
    for (const Heard* followUp : takenOfType(evidence, ptp::kPdelayRespFollowUp, byThisNode)) {
        found.isComplete = found.isComplete || answers(*followUp, request);
    }
    return found;
}

struct Exchanges {
    std::size_t requests = 0;
    std::size_t answered = 0;
    std::set<std::string> responders; /**< to the request that most answered */
};

/** An own request that has no times to its answer is not answered. Of other nodes' requests the
 *  answer alone counts: without stamps its times stay away, which another gate tells. */
Exchanges exchangesOf(const Evidence& evidence, bool own) {
    Exchanges exchanges;
    const Frames requests = answerable(evidence, takenOfType(evidence, ptp::kPdelayReq, own));
    exchanges.requests = requests.size();
    for (const Heard* request : requests) {
        const Answers found = answersTo(evidence, *request, !own);
        exchanges.answered += !found.responders.empty() && (found.isComplete || !own) ? 1 : 0;
        if (found.responders.size() > exchanges.responders.size()) {
            exchanges.responders = found.responders;
        }
    }
    return exchanges;
}

std::string answeredText(const Exchanges& exchanges) {
    return std::to_string(exchanges.answered) + " of " + std::to_string(exchanges.requests) +
           " Pdelay_Req answered";
}

bool mostFail(std::size_t failures, std::size_t all) {
    return all != 0 && 2 * failures > all;
}

Verdict judgeOwnAnswers(const Evidence& evidence) {
    const Exchanges exchanges = exchangesOf(evidence, false);
    if (exchanges.requests == 0) {
        return skipped("nobody asks for the delay; slaves with a fixed one do not");
    }
    const std::string found = answeredText(exchanges) + " by this node";
    if (mostFail(exchanges.requests - exchanges.answered, exchanges.requests)) {
        return failed(found, "see the daemon's log: it lacks stamps, or another port answers");
    }
    return passed(found);
}

double requestPeriodS(const Evidence& evidence) {
    return kSyncsPerRequest * evidence.expected.syncIntervalMs / 1000.0;
}

/** Whether the delay is measured rather than fixed; nothing where neither shows. */
std::optional<bool> measuresDelay(const Evidence& evidence) {
    if (evidence.used.fixedDelayNs) {
        return *evidence.used.fixedDelayNs == 0;
    }
    const gPtpTimeDataStruct& record = *evidence.record.after;
    if (!ofType(evidence, ptp::kPdelayReq, true).empty() || record.pdelayPhcTime != 0 ||
        record.incompletePdelay != 0) {
        return true;
    }
    return evidence.wire.listenedS > requestPeriodS(evidence) ? std::optional(false) : std::nullopt;
}

Verdict judgeUnasked(const Evidence& evidence) {
    const long long delayNs = evidence.record.after->linkDelay;
    const std::optional<bool> measures = measuresDelay(evidence);
    if (measures && !*measures && delayNs != 0) {
        return skipped("no Pdelay_Req of this node; its delay is fixed, " +
                       std::to_string(delayNs) + " ns");
    }
    if (evidence.wire.listenedS <= requestPeriodS(evidence)) {
        return skipped("one Pdelay_Req comes each " + decimal(requestPeriodS(evidence), 1) +
                       " s; listen longer with --listen");
    }
    if (!ofType(evidence, ptp::kPdelayReq, true).empty()) {
        return skipped("this node's Pdelay_Req are of another domain or VLAN");
    }
    if (delayNs != 0 && !evidence.used.fixedDelayNs) {
        return skipped("no Pdelay_Req of this node now; its delay was measured before");
    }
    if (delayNs != 0) {
        return failed("no Pdelay_Req of this node, whose delay is measured",
                      "see why the daemon sends nothing in its log");
    }
    return failed("no Pdelay_Req of this node, and no delay in its record",
                  "a fixed delay counts from the host's first GetCurrentTime on; otherwise see "
                  "why the daemon sends nothing in its log");
}

Verdict judgeOwnFollowUps(const Evidence& evidence) {
    const Frames syncs = answerable(evidence, masterSyncs(evidence));
    if (syncs.empty()) {
        return skipped("this node sends no Sync");
    }
    const Frames followUps = followUpsOf(evidence, syncs, true);
    const auto timed = static_cast<std::size_t>(
        std::count_if(followUps.begin(), followUps.end(), [](const Heard* followUp) {
            return followUp != nullptr &&
                   ptp::number(followUp->message.data() + ptp::kPreciseOriginTimestampAt, 10) != 0;
        }));
    const std::string found = std::to_string(timed) + " of " + std::to_string(syncs.size()) +
                              " Sync were stamped and followed up";
    if (mostFail(syncs.size() - timed, syncs.size())) {
        return failed(found,
                      "the card returns no transmit stamps: see that nothing else uses its "
                      "stamping, then start the daemon anew and renew the driver");
    }
    return passed(found);
}

}  // namespace

Verdict judgeDaemon(const Evidence& evidence) {
    const RecordFacts& record = evidence.record;
    const std::vector<const Process*> daemons = daemonsOf(evidence);
    const std::string run = "start it: tsyn run " + evidence.expected.interfaceName + " --role " +
                            (evidence.expected.master ? "master" : "slave");
    if (!record.exists) {
        return failed(
            "no daemon runs: /dev/shm/" + evidence.expected.interfaceName + " is not there", run);
    }
    if (!daemonLives(evidence)) {
        return failed("the daemon" +
                          (record.ownerPid != 0 ? ", pid " + std::to_string(record.ownerPid) + ","
                                                : std::string()) +
                          " is gone; what is in its record is old",
                      run + ", and see in its log and the journal why it ended");
    }
    if (!record.problem.empty()) {
        return failed("its record cannot be read: " + record.problem,
                      "mend that, or start the daemon anew, which makes its record anew");
    }
    if (daemons.empty() && record.ownerIsHidden && !recordMoves(evidence)) {
        return skipped(
            "its record rests, and whether its process runs is hidden from this user; look as "
            "root");
    }
    return passed(daemons.empty()
                      ? "its record is kept up to date"
                      : daemons.front()->name + ", pid " + std::to_string(daemons.front()->pid));
}

Verdict judgePeerDelay(const Evidence& evidence) {
    if (evidence.expected.master) {
        return judgeOwnAnswers(evidence);
    }
    const Exchanges exchanges = exchangesOf(evidence, true);
    if (exchanges.requests == 0) {
        return judgeUnasked(evidence);
    }
    if (exchanges.responders.size() > 1) {
        std::string text;
        for (const std::string& responder : exchanges.responders) {
            text += (text.empty() ? "" : ", ") + responder;
        }
        return failed("a Pdelay_Req is answered by " + std::to_string(exchanges.responders.size()) +
                          ": " + text,
                      "a plain switch lies between: use a time-aware one or a direct cable, or a "
                      "fixed delay (--propagation-delay)");
    }
    const std::string found = answeredText(exchanges);
    if (mostFail(exchanges.requests - exchanges.answered, exchanges.requests)) {
        return failed(found,
                      "see that the peer answers peer delay (domain, VLAN, its log), or "
                      "give a fixed delay with --propagation-delay");
    }
    return passed(found + ", by one");
}

Verdict judgeTransmitStamps(const Evidence& evidence) {
    if (evidence.expected.master) {
        return judgeOwnFollowUps(evidence);
    }
    const std::size_t requests = exchangesOf(evidence, true).requests;
    if (requests == 0) {
        return skipped("this node sends nothing that is stamped");
    }
    const unsigned int lacking =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.incompletePdelay; });
    const unsigned int stray = qualityRise(evidence, &gPtpTimeQuality::strayStamps);
    const std::string found = std::to_string(lacking) + " of " + std::to_string(requests) +
                              " exchanges lacked a stamp, " + std::to_string(stray) +
                              " came too late";
    if (mostFail(lacking, requests)) {
        return failed(found,
                      "the card returns no transmit stamps in time: see that nothing else "
                      "uses its stamping, then start the daemon anew and renew the driver");
    }
    return passed(found);
}

Verdict judgeReceiveStamps(const Evidence& evidence) {
    const Frames frames = needed(evidence, Stage::kTransport);
    if (frames.empty()) {
        return skipped("no frame that is stamped");
    }
    const auto stamped = static_cast<std::size_t>(std::count_if(
        frames.begin(), frames.end(), [](const Heard* frame) { return frame->rxNs.has_value(); }));
    const std::string found = std::to_string(stamped) + " of " + std::to_string(frames.size()) +
                              (evidence.expected.master ? " Pdelay_Req" : " Sync") +
                              " were stamped by the card";
    if (!mostFail(frames.size() - stamped, frames.size())) {
        return passed(found);
    }
    if (!daemonLives(evidence)) {
        return skipped(found + "; a daemon switches it on when it starts");
    }
    return failed(found,
                  "start the daemon anew, which sets the card's filter; when that does not "
                  "help, renew the driver");
}

Verdict judgeRate(const Evidence& evidence) {
    const std::optional<double> wirePpm =
        evidence.expected.master ? std::nullopt : masterRatePpm(evidence);
    if (!wirePpm) {
        return skipped(evidence.expected.master ? "a master's own rate is the reference"
                                                : "too few stamped Sync pairs to tell");
    }
    const std::string found = "the master runs " + decimal(*wirePpm, 1) + " ppm against this card";
    if (std::fabs(*wirePpm) > kRateLimitPpm) {
        return failed(found + ", more than " + decimal(kRateLimitPpm, 0),
                      "one of the clocks is steered, was stepped, or its oscillator is out of "
                      "order: see who sets it, on this and on the other side");
    }
    return passed(found);
}

Verdict judgeLinkDelay(const Evidence& evidence) {
    constexpr long long kLongestNs = 49999;
    if (evidence.expected.master) {
        return skipped("a master needs no delay");
    }
    const Exchanges exchanges = exchangesOf(evidence, true);
    const std::size_t requests = exchanges.requests;
    const long long delayNs = evidence.record.after->linkDelay;
    const unsigned int refused = qualityRise(evidence, &gPtpTimeQuality::unusedExchanges);
    const std::string found = std::to_string(delayNs) + " ns";
    const std::optional<bool> measures = measuresDelay(evidence);
    if (delayNs == 0 && requests == 0) {
        return skipped("none yet");
    }
    if (measures && !*measures) {
        return passed("fixed, " + found);
    }
    if (requests == 0 && !measures) {
        return passed(found + ", fixed or measured before");
    }
    if (requests != 0 && exchanges.answered == 0) {
        return skipped("no Pdelay_Req was answered");
    }
    constexpr char kNext[] =
        "a measured delay is taken from 1 to 49999 ns: see that nothing but a cable lies between, "
        "that the peer's answers hold its true times (standardResponses), or give a fixed delay";
    if (delayNs <= 0 || delayNs > kLongestNs) {
        return failed(delayNs == 0 ? "every measured delay was refused" : found, kNext);
    }
    if (mostFail(refused, requests)) {
        return failed(found + ", but " + std::to_string(refused) + " of " +
                          std::to_string(requests) + " new measurements were refused",
                      kNext);
    }
    return passed("measured, " + found);
}

}  // namespace tsyn::doctor
