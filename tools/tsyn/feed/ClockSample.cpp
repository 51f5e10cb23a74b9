#include "tools/tsyn/feed/ClockSample.h"

#include <cmath>

#include "tools/tsyn/daemon/DaemonTime.h"

namespace tsyn {
namespace {

/** A step of this size is told from a pause between the readings of two clocks. */
constexpr double kSetS = 1e-4;

Timescale timescaleAt(long long timeNs, long long systemNs, const SampleLimits& limits) {
    switch (limits.timescale) {
    case FeedTimescale::kUtc:
        return Timescale::kUtc;
    case FeedTimescale::kTai:
        return Timescale::kTai;
    default:
        return timescaleOf(timeNs, systemNs, limits.utcOffsetS);
    }
}

bool isFresh(const DaemonState& daemon, const SampleLimits& limits) {
    const std::optional<double> ageS = daemon.syncAgeS();
    return ageS && *ageS <= limits.staleAfterS;
}

}  // namespace

std::string sampleObstacle(const DaemonState& daemon, const Owner& owner,
                           const SampleLimits& limits) {
    const Look& look = daemon.latest();
    if (roleOf(look) == DaemonRole::kMaster) {
        return "its daemon is a master, which has its time from this host";
    }
    if (hasEnded(owner, daemon)) {
        return "its daemon has ended";
    }
    if (daemon.verdict() != Verdict::kGood) {
        return std::string("its daemon is not synchronised: ") + daemon.state();
    }
    // A system clock that was set makes it older or younger than it is.
    if (!isFresh(daemon, limits)) {
        return "its last Sync is older than --stale-after, or the clock was set since";
    }
    const std::optional<long long> boundNs = daemon.boundNs();
    if (look.quality && (!boundNs || *boundNs > limits.maxBoundNs)) {
        return "its error bound is above --max-bound";
    }
    if (!sampleOf(daemon, limits)) {
        return "its time is neither UTC nor TAI by this host's clock; set that to within 5 s, or "
               "say which it is by --timescale";
    }
    return {};
}

std::optional<ClockSample> sampleOf(const DaemonState& daemon, const SampleLimits& limits) {
    constexpr long long kMicrosecondNs = 1000;
    const Look& look = daemon.latest();
    const long long systemNs = look.systemNs - look.systemNs % kMicrosecondNs;
    const std::optional<long long> timeNs = timeAt(look, systemNs);
    if (!timeNs) {
        return {};
    }
    const Timescale timescale = timescaleAt(*timeNs, systemNs, limits);
    const std::optional<long long> utcNs = civilTime(*timeNs, timescale, limits.utcOffsetS).utcNs;
    return utcNs ? std::optional(ClockSample{systemNs, *utcNs}) : std::nullopt;
}

bool wasSet(const Look& before, const Look& after) {
    const double systemS = 1e-9 * static_cast<double>(after.systemNs - before.systemNs);
    return std::abs(systemS - (after.monotonicS - before.monotonicS)) > kSetS;
}

}  // namespace tsyn
