#pragma once

#include <time.h>

#include <cstdint>

namespace virtual_i210 {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

/** Apart from timespec, whose seconds have 32 bits in a 32-bit program. */
struct SplitTime {
    std::int64_t seconds = 0;
    std::int64_t ns = 0; /**< 0 to 10^9 - 1, also before the epoch */
};

inline SplitTime split(std::int64_t ns) {
    const std::int64_t below = (ns % kNsPerSecond + kNsPerSecond) % kNsPerSecond;
    return {(ns - below) / kNsPerSecond, below};
}

inline timespec toTimespec(std::int64_t ns) {
    const SplitTime parts = split(ns);
    timespec time{};
    time.tv_sec = static_cast<time_t>(parts.seconds);
    time.tv_nsec = static_cast<long>(parts.ns);
    return time;
}

inline std::int64_t toNs(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * kNsPerSecond + time.tv_nsec;
}

}  // namespace virtual_i210
