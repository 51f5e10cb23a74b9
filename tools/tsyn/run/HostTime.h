#pragma once

#include <cstdint>
#include <optional>

namespace tsyn {

/** A time that the daemon gave. */
struct HostTime {
    unsigned long long seconds = 0;
    unsigned int nanoseconds = 0;

    std::uint64_t totalNs() const { return seconds * 1000000000ULL + nanoseconds; }
};

/** The daemon's synchronised time; nothing while it does not run. */
std::optional<HostTime> currentTime();

/** The hardware clock of a master; nothing on a slave. */
std::optional<HostTime> masterTime();

/** What a master distributes, so far ahead of its hardware clock; nothing on a slave. */
std::optional<HostTime> distributedTime(long long softOffsetNs);

}  // namespace tsyn
