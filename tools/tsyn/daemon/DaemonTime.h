#pragma once

#include <optional>

namespace tsyn {

/** What a daemon's time counts, as far as it shows from its distance to this host's clock. */
enum class Timescale { kUtc, kTai, kOwn };

/** "utc", "tai" or "own", which is any other epoch. */
const char* timescaleName(Timescale timescale);

/** utcOffsetS: seconds of TAI over UTC. */
Timescale timescaleOf(long long timeNs, long long systemNs, int utcOffsetS);

/** A time in both; nothing of one that counts from an epoch of its own. */
struct CivilTime {
    std::optional<long long> utcNs;
    std::optional<long long> taiNs;
};
CivilTime civilTime(long long timeNs, Timescale timescale, int utcOffsetS);

}  // namespace tsyn
