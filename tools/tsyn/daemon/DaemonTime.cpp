#include "tools/tsyn/daemon/DaemonTime.h"

#include <cstdlib>

namespace tsyn {
namespace {

constexpr long long kSecondNs = 1000000000;
/** Half a system clock that is set by hand, far from the distance of TAI. */
constexpr long long kNearNs = 5 * kSecondNs;

}  // namespace

const char* timescaleName(Timescale timescale) {
    switch (timescale) {
    case Timescale::kUtc:
        return "utc";
    case Timescale::kTai:
        return "tai";
    default:
        return "own";
    }
}

Timescale timescaleOf(long long timeNs, long long systemNs, int utcOffsetS) {
    const long long aheadNs = timeNs - systemNs;
    if (std::llabs(aheadNs) <= kNearNs) {
        return Timescale::kUtc;
    }
    return std::llabs(aheadNs - utcOffsetS * kSecondNs) <= kNearNs ? Timescale::kTai
                                                                   : Timescale::kOwn;
}

CivilTime civilTime(long long timeNs, Timescale timescale, int utcOffsetS) {
    const long long offsetNs = utcOffsetS * kSecondNs;
    switch (timescale) {
    case Timescale::kUtc:
        return {timeNs, timeNs + offsetNs};
    case Timescale::kTai:
        return {timeNs - offsetNs, timeNs};
    default:
        return {};
    }
}

}  // namespace tsyn
