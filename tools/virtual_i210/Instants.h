#pragma once

#include <time.h>

#include <cstdint>

#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/Timespec.h"

namespace virtual_i210 {

/** When a clock of the simulated machine shows this time. */
inline std::uint64_t rawInstantOf(clockid_t clock, const timespec& time) {
    std::uint64_t clockNs = 0;
    if (!simulatedClock(clock, clockNs)) {
        return rawNowNs();
    }
    const std::int64_t fromNow = toNs(time) - static_cast<std::int64_t>(clockNs);
    return fromNow <= 0 ? rawNowNs() : rawNowNs() + static_cast<std::uint64_t>(fromNow);
}

/** The end of a wait that lasts this long, or kNever for a negative one. */
inline std::uint64_t endOfMilliseconds(int milliseconds) {
    constexpr std::uint64_t kNsPerMs = 1'000'000;
    return milliseconds < 0 ? kNever
                            : rawNowNs() + kNsPerMs * static_cast<std::uint64_t>(milliseconds);
}

inline std::uint64_t endOf(const timespec* duration) {
    return duration == nullptr ? kNever : rawNowNs() + static_cast<std::uint64_t>(toNs(*duration));
}

}  // namespace virtual_i210
