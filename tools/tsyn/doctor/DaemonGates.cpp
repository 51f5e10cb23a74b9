#include "tools/tsyn/doctor/DaemonGates.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "base/Extended80.h"
#include "include/gPtpTimeQuality.h"
#include "tools/tsyn/check/PtpFields.h"
#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/Numbers.h"
#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

constexpr double kSyncsPerRequest = 8.0;
constexpr double kRateLimitPpm = 250.0;
constexpr double kNsPerSecond = 1e9;

/** How often a counter rose while it was listened. */
template <typename Read>
unsigned int rise(const Evidence& evidence, Read read) {
    const unsigned int before = read(*evidence.record.before);
    const unsigned int after = read(*evidence.record.after);
    return after - before;
}

template <typename Member>
unsigned int qualityRise(const Evidence& evidence, Member member) {
    return rise(evidence, [member](const gPtpTimeDataStruct& record) {
        const auto quality = qualityOf(record);
        return quality ? static_cast<unsigned int>((*quality).*member) : 0U;
    });
}

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

Verdict judgeUnasked(const Evidence& evidence) {
    const double periodS = kSyncsPerRequest * evidence.expected.syncIntervalMs / 1000.0;
    if (evidence.wire.listenedS <= periodS) {
        return skipped("one Pdelay_Req comes each " + decimal(periodS, 1) +
                       " s; listen longer with --listen");
    }
    const long long delayNs = evidence.record.after ? evidence.record.after->linkDelay : 0;
    if (delayNs != 0) {
        return skipped("no Pdelay_Req of this node; its delay is fixed, " +
                       std::to_string(delayNs) + " ns");
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

bool pairWasTaken(const gPtpTimeDataStruct& record) {
    constexpr unsigned long long kConsistentNs = 1000000;
    const unsigned long long masterNs =
        record.localTime - static_cast<unsigned long long>(record.masterOffset);
    const unsigned long long difference = masterNs - record.originTime;
    return std::min(difference, 0 - difference) <= kConsistentNs;
}

std::string ageText(const Evidence& evidence) {
    const gPtpTimeDataStruct& record = *evidence.record.after;
    const auto localNs = static_cast<long long>(record.localTime);
    const long long ageNs = evidence.record.afterNs - localNs - record.systemOffset;
    return localNs == 0
               ? "no time yet"
               : "time " + decimal(static_cast<double>(ageNs) / kNsPerSecond, 1) + " s old";
}

Verdict judgeMasterRecord(const Evidence& evidence) {
    const unsigned int sent =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.sequenceId; }) & 0xFFFF;
    const std::string found =
        std::to_string(sent) + " Sync published in " + decimal(evidence.wire.listenedS, 1) + " s";
    return sent == 0 ? failed(found, "the daemon hangs: see its log, and start it anew")
                     : passed(found);
}

Verdict judgeState(const gPtpTimeQuality& quality, const std::string& found) {
    switch (quality.state) {
    case TSYN_STATE_SYNCHRONISED:
        return passed(found);
    case TSYN_STATE_ACQUIRING:
        return failed(found,
                      "wait some seconds; when it stays so, the time of the master or the "
                      "delay moves: see the daemon's log");
    default:
        return failed(found,
                      "see the daemon's log for why it does not believe the Sync that comes");
    }
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
    if (requests == 0) {
        return passed("fixed, " + found);
    }
    if (exchanges.answered == 0) {
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

Verdict judgeRecord(const Evidence& evidence) {
    if (evidence.expected.master) {
        return judgeMasterRecord(evidence);
    }
    const auto accepted =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.acceptedSync; });
    const auto rejected =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.rejectedSync; });
    const gPtpTimeDataStruct& record = *evidence.record.after;
    std::string found = std::to_string(accepted) + " Sync taken, " + std::to_string(rejected) +
                        " rejected, " + ageText(evidence);
    if (accepted == 0) {
        return failed(found, rejected == 0
                                 ? "the daemon hangs, or was told another domain, VLAN or master: "
                                   "see its options and its log"
                                 : "see in the daemon's log why it rejects them");
    }
    if (const auto quality = qualityOf(record)) {
        return judgeState(*quality,
                          found + ", " + timeStateName(quality->state) +
                              qualityText(*quality, record, evidence.record.afterNs, false));
    }
    const double rate = static_cast<double>(loadExtended(record.rateRatio1));
    if (!pairWasTaken(record) || rate < kSlowestMasterRate || rate > kFastestMasterRate) {
        return failed(found + ", the last pair was refused for its rate",
                      "wait some seconds when the daemon or the master has just begun; otherwise "
                      "see 'frequency offset out of range' in its log");
    }
    return passed(found + ", rate " + decimal(1e6 * (rate - 1.0), 1) + " ppm");
}

}  // namespace tsyn::doctor
