#include "tools/tsyn/run/SyncTracker.h"

#include "tools/tsyn/daemon/LastPair.h"

namespace tsyn {
namespace {

constexpr double kStaleIntervals = 3.0;
constexpr unsigned int kPairsUntilValid = 2;

}  // namespace

const char* stateName(SyncState state) {
    switch (state) {
    case SyncState::kStarting:
        return "starting";
    case SyncState::kNoSync:
        return "no sync yet";
    case SyncState::kPriming:
        return "priming";
    case SyncState::kSynchronised:
        return "synchronised";
    case SyncState::kRefused:
        return "rate refused";
    case SyncState::kStale:
        return "stale";
    case SyncState::kSending:
        return "sending";
    case SyncState::kSilent:
        return "not sending";
    case SyncState::kGone:
        return "interface gone";
    }
    return "unknown";
}

SyncTracker::SyncTracker(bool master, double syncIntervalMs)
    : master_(master), staleAfterS_(kStaleIntervals * syncIntervalMs / 1000.0) {}

void SyncTracker::update(const gPtpTimeDataStruct& record, double nowS) {
    const bool newPair = record.localTime != record_.localTime;
    const bool newSync = master_ ? record.sequenceId != record_.sequenceId
                                 : record.acceptedSync != record_.acceptedSync;
    if (record.acceptedSync < record_.acceptedSync) {
        evaluatedPairs_ = 0;  // another process has cleared the record
    }
    seen_ = true;
    record_ = record;
    if (newSync && !firstSyncS_) {
        firstSyncS_ = nowS;
    }
    if (newPair) {
        ++evaluatedPairs_;
    }
    if (newPair || (newSync && (master_ || evaluatedPairs_ == 0))) {
        lastProgressS_ = nowS;
    }
    if (!firstValidS_ && state(nowS) == SyncState::kSynchronised) {
        firstValidS_ = nowS;
    }
}

SyncState SyncTracker::state(double nowS) const {
    if (!seen_) {
        return SyncState::kStarting;
    }
    const bool stale = nowS - lastProgressS_ > staleAfterS_;
    if (!master_) {
        return slaveState(stale);
    }
    if (!firstSyncS_) {
        return SyncState::kSilent;
    }
    return stale ? SyncState::kStale : SyncState::kSending;
}

SyncState SyncTracker::slaveState(bool stale) const {
    if (record_.acceptedSync == 0) {
        return SyncState::kNoSync;
    }
    if (stale) {
        return SyncState::kStale;
    }
    if (evaluatedPairs_ >= kPairsUntilValid && lastPairWasTaken(record_)) {
        return SyncState::kSynchronised;
    }
    return firstValidS_ ? SyncState::kRefused : SyncState::kPriming;
}

}  // namespace tsyn
