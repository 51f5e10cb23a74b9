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

std::optional<HostTime> distributedTime(long long softOffsetNs) {
    constexpr std::uint64_t kNsPerSecond = 1000000000;
    std::optional<HostTime> time = masterTime();
    if (time) {
        const std::uint64_t ns = time->totalNs() + static_cast<std::uint64_t>(softOffsetNs);
        time = HostTime{ns / kNsPerSecond, static_cast<unsigned int>(ns % kNsPerSecond)};
    }
    return time;
}

}  // namespace tsyn
