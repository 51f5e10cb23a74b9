#pragma once

#include <time.h>

#include <cstdint>

#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/Timespec.h"

namespace virtual_i210 {

/** Longer than any run, and far enough from the end of the nanoseconds to be added to. */
constexpr std::int64_t kAgesNs = 4'000'000'000'000'000'000;

/** What the C library takes as the end of a wait. */
inline bool isInstant(const timespec& time) {
    return time.tv_nsec >= 0 && time.tv_nsec < kNsPerSecond;
}

/** What the kernel takes as a duration, or as the end of a sleep. */
inline bool isTime(const timespec& time) {
    return time.tv_sec >= 0 && isInstant(time);
}

/** Programs write times beyond all ages for no limit. */
inline std::int64_t limitedNs(const timespec& time) {
    const std::int64_t seconds = std::int64_t{time.tv_sec};
    return seconds > kAgesNs / kNsPerSecond    ? kAgesNs
           : seconds < -kAgesNs / kNsPerSecond ? -kAgesNs
                                               : toNs(time);
}

/** When a clock of the simulated machine shows this time. */
inline std::uint64_t rawInstantOf(clockid_t clock, const timespec& time) {
    std::uint64_t clockNs = 0;
    if (!simulatedClock(clock, clockNs)) {
        return rawNowNs();
    }
    const std::int64_t fromNow = limitedNs(time) - static_cast<std::int64_t>(clockNs);
    return fromNow <= 0 ? rawNowNs() : rawNowNs() + static_cast<std::uint64_t>(fromNow);
}

/** The end of a wait that lasts this long, or kNever for a negative one. */
inline std::uint64_t endOfMilliseconds(int milliseconds) {
    constexpr std::uint64_t kNsPerMs = 1'000'000;
    return milliseconds < 0 ? kNever
                            : rawNowNs() + kNsPerMs * static_cast<std::uint64_t>(milliseconds);
}

inline std::uint64_t endOf(const timespec* duration) {
    return duration == nullptr ? kNever
                               : rawNowNs() + static_cast<std::uint64_t>(limitedNs(*duration));
}

}  // namespace virtual_i210
