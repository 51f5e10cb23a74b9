#include "tools/tsyn/run/HostTime.h"

#include "include/ZebEthTimeSynSupportInterface.h"

namespace tsyn {

std::optional<HostTime> currentTime() {
    HostTime time;
    ZebEthTSynInterface_GetCurrentTime(0, &time.seconds, &time.nanoseconds, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr);
    // All ones: the daemon is not running.
    if (time.seconds == ~0ULL) {
        return {};
    }
    return time;
}

std::optional<HostTime> masterTime() {
    HostTime time;
    if (ZebEthTSynInterface_GetMasterTime(0, &time.seconds, &time.nanoseconds) != 0) {
        return {};
    }
    return time;
}

}  // namespace tsyn
