#include "tools/tsyn/daemon/DaemonState.h"

#include <cstring>
#include <limits>

#include "base/Extended80.h"
#include "include/gPtpExactTime.h"
#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/LastPair.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

constexpr const char* kNoSync = "no sync yet";
constexpr const char* kPriming = "priming";
constexpr const char* kSynchronised = "synchronised";
constexpr const char* kRefused = "rate refused";
constexpr const char* kStale = "stale";
constexpr const char* kSending = "sending";

/** Beyond, the clock was set since. */
constexpr double kMostAheadS = 1.0;

/** What a daemon changes with every Sync. */
bool isOtherSync(const gPtpTimeDataStruct& one, const gPtpTimeDataStruct& other) {
    return one.localTime != other.localTime || one.sequenceId != other.sequenceId ||
           one.acceptedSync != other.acceptedSync;
}

bool is(const char* state, const char* name) {
    return std::strcmp(state, name) == 0;
}

}  // namespace

long long anchorNs(const gPtpTimeDataStruct& record) {
    return static_cast<long long>(record.localTime +
                                  static_cast<unsigned long long>(record.systemOffset));
}

const char* roleName(DaemonRole role) {
    switch (role) {
    case DaemonRole::kMaster:
        return "master";
    case DaemonRole::kSlave:
        return "slave";
    default:
        return "unknown";
    }
}

const char* profileName(const Look& look) {
    if (look.quality) {
        return "standard";
    }
    return look.record.localTime != 0 ? "deployed" : "unknown";
}

/** Only a master tells the system time of its cross-timestamps. */
DaemonRole roleOf(const Look& look) {
    if (look.record.systemTime != 0) {
        return DaemonRole::kMaster;
    }
    const bool hears = look.record.acceptedSync != 0 || look.record.rejectedSync != 0;
    return hears || look.quality ? DaemonRole::kSlave : DaemonRole::kUnknown;
}

std::optional<long long> lastSyncNs(const Look& look) {
    const gPtpTimeDataStruct& record = look.record;
    if (record.localTime == 0) {
        return {};
    }
    return roleOf(look) == DaemonRole::kMaster ? static_cast<long long>(record.systemTime)
                                               : anchorNs(record);
}

std::optional<double> ratePpm(const gPtpTimeDataStruct& record) {
    const long double ratio = loadExtended(record.rateRatio1);
    if (ratio == 0.0L) {
        return {};
    }
    return static_cast<double>((ratio - 1.0L) * 1e6L);
}

std::optional<long long> timeAt(const Look& look, long long systemNs) {
    const long long timeNs = gPtpTimeAtSystem(&look.record, systemNs);
    if (look.record.localTime == 0 || timeNs == std::numeric_limits<long long>::min()) {
        return {};
    }
    return timeNs;
}

void DaemonState::update(const Look& look) {
    if (hasLook_ && beganAnew(latest_, look)) {
        movedS_.reset();
        wasSynchronised_ = false;
    } else if (hasLook_ && isOtherSync(latest_.record, look.record)) {
        movedS_ = look.monotonicS;
    }
    latest_ = look;
    hasLook_ = true;
    wasSynchronised_ = wasSynchronised_ || is(state(), kSynchronised);
}

std::optional<double> DaemonState::syncAgeS() const {
    const std::optional<long long> syncNs = lastSyncNs(latest_);
    if (!syncNs) {
        return {};
    }
    if (!sharesClock_) {
        return movedS_ ? std::optional(latest_.monotonicS - *movedS_) : std::nullopt;
    }
    const double ageS = 1e-9 * static_cast<double>(latest_.systemNs - *syncNs);
    return ageS < -kMostAheadS ? std::nullopt : std::optional(ageS < 0.0 ? 0.0 : ageS);
}

bool DaemonState::isFresh() const {
    if (isMoving()) {
        return true;
    }
    const std::optional<double> ageS = syncAgeS();
    return sharesClock_ && ageS && *ageS <= staleAfterS_;
}

const char* DaemonState::state() const {
    if (latest_.quality && roleOf(latest_) == DaemonRole::kSlave) {
        return toldState();
    }
    return derivedState();
}

/** A daemon that was killed leaves its last state. */
const char* DaemonState::toldState() const {
    const gPtpTimeQuality& quality = *latest_.quality;
    const bool hasTime =
        quality.state == TSYN_STATE_SYNCHRONISED || quality.state == TSYN_STATE_HOLDOVER;
    const bool isVoid = sharesClock_
                            ? latest_.systemNs > quality.voidAfterNs
                            : quality.state == TSYN_STATE_SYNCHRONISED && movedS_ && !isMoving();
    return timeStateName(hasTime && isVoid ? static_cast<unsigned char>(TSYN_STATE_LOST)
                                           : quality.state);
}

const char* DaemonState::derivedState() const {
    const DaemonRole role = roleOf(latest_);
    if (role == DaemonRole::kUnknown ||
        (role == DaemonRole::kSlave && latest_.record.acceptedSync == 0)) {
        return kNoSync;
    }
    if (role == DaemonRole::kMaster) {
        return isFresh() ? kSending : kStale;
    }
    if (latest_.record.localTime == 0) {
        return kPriming;
    }
    if (!isFresh()) {
        return kStale;
    }
    if (lastPairWasTaken(latest_.record)) {
        return kSynchronised;
    }
    return wasSynchronised_ || ratePpm(latest_.record) ? kRefused : kPriming;
}

Verdict DaemonState::verdict() const {
    const char* const now = state();
    if (is(now, kSynchronised) || is(now, kSending)) {
        return Verdict::kGood;
    }
    return is(now, "holdover") ? Verdict::kHolding : Verdict::kBad;
}

std::optional<long long> DaemonState::boundNs() const {
    if (!latest_.quality) {
        return {};
    }
    return boundAt(*latest_.quality, latest_.record,
                   sharesClock_ ? latest_.systemNs : anchorNs(latest_.record));
}

std::optional<long long> shownTimeNs(const DaemonState& daemon) {
    const Look& look = daemon.latest();
    return timeAt(look, daemon.sharesClock() ? look.systemNs : anchorNs(look.record));
}

}  // namespace tsyn
