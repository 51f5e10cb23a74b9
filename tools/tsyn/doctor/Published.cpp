#include "tools/tsyn/doctor/Published.h"

#include <algorithm>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/doctor/CardGates.h"

namespace tsyn::doctor {
namespace {

constexpr double kStaleIntervals = 3.0;
constexpr double kLeastStaleS = 1.5;

Look lookAt(const gPtpTimeDataStruct& record, long long systemNs, double monotonicS) {
    Look look;
    look.record = record;
    look.quality = qualityOf(record);
    look.systemNs = systemNs;
    look.monotonicS = monotonicS;
    return look;
}

DaemonState stateSeen(const Evidence& evidence) {
    const RecordFacts& record = evidence.record;
    const double intervalS = evidence.expected.syncIntervalMs / 1000.0;
    DaemonState daemon(true, std::max(kLeastStaleS, kStaleIntervals * intervalS));
    const auto apartNs = static_cast<long long>(1e9 * record.apartS);
    daemon.update(lookAt(*record.before, record.afterNs - apartNs, 0.0));
    daemon.update(lookAt(*record.after, record.afterNs, record.apartS));
    return daemon;
}

std::string notSo(bool isMaster) {
    return isMaster ? "not sending" : "not synchronised";
}

}  // namespace

Published publishedState(const Evidence& evidence) {
    const RecordFacts& record = evidence.record;
    const bool lives = daemonLives(evidence);
    if (!record.before || !record.after) {
        return lives && !record.problem.empty() ? Published{"state not known", {}}
                                                : Published{notSo(evidence.expected.master), false};
    }
    const DaemonState daemon = stateSeen(evidence);
    const DaemonRole role = roleOf(daemon.latest());
    const bool isMaster =
        role == DaemonRole::kUnknown ? evidence.expected.master : role == DaemonRole::kMaster;
    // What a process that hangs told last is true no more.
    if (lives && daemon.verdict() == tsyn::Verdict::kGood && daemon.isFresh()) {
        return {daemon.state(), true};
    }
    const bool isHolding = lives && daemon.verdict() == tsyn::Verdict::kHolding;
    return {isHolding ? daemon.state() : notSo(isMaster), false};
}

}  // namespace tsyn::doctor
