#pragma once

#include <optional>
#include <string>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/Owner.h"

namespace tsyn {

/** One comparison of this host's clock with the daemon's time. */
struct ClockSample {
    long long systemNs; /**< whole microseconds, as a timeval tells them */
    long long utcNs;    /**< what the time was in truth */
};

/** How the daemon's time is read. */
enum class FeedTimescale { kByDistance, kUtc, kTai };

/** Which samples are good enough to set a clock by. */
struct SampleLimits {
    double staleAfterS = 1.5;
    long long maxBoundNs = 10000;
    FeedTimescale timescale = FeedTimescale::kByDistance;
    int utcOffsetS = 37;
};

/** Why the latest look gives no sample, in words that stay the same while the reason does; empty
 *  when it gives one. */
std::string sampleObstacle(const DaemonState& daemon, const Owner& owner,
                           const SampleLimits& limits);

/** Of the latest look, which has no obstacle. */
std::optional<ClockSample> sampleOf(const DaemonState& daemon, const SampleLimits& limits);

/** The system clock was set between two looks: what the daemon measured before is of another
 *  clock. */
bool wasSet(const Look& before, const Look& after);

}  // namespace tsyn
