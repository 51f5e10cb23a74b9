#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/Timespec.h"

/** Readings of the system clock beside clock_gettime, and of the processor's counter. */

namespace {

using virtual_i210::realWaits;

std::int64_t readRealtimeNs() {
    const virtual_i210::ClockReading reading;
    return virtual_i210::realtimeNowNs();
}

}  // namespace

VIRTUAL_I210_EXPORT int gettimeofday(timeval* time, void* zone) noexcept {
    if (!virtual_i210::timeIsSimulated()) {
        return realWaits().gettimeofday(time, zone);
    }
    const timespec now = virtual_i210::toTimespec(readRealtimeNs());
    *time = {now.tv_sec, static_cast<suseconds_t>(now.tv_nsec / 1000)};
    return 0;
}

VIRTUAL_I210_EXPORT time_t time(time_t* seconds) noexcept {
    if (!virtual_i210::timeIsSimulated()) {
        return realWaits().time(seconds);
    }
    const time_t now = virtual_i210::toTimespec(readRealtimeNs()).tv_sec;
    if (seconds != nullptr) {
        *seconds = now;
    }
    return now;
}

/** The daemon's library reads the processor's counter by this where it is there. */
VIRTUAL_I210_EXPORT unsigned long long zebCycleCounter() {
    constexpr unsigned long long kCyclesPerNs = 3;
    if (!virtual_i210::timeIsSimulated()) {
        return __builtin_ia32_rdtsc();
    }
    const virtual_i210::ClockReading reading;
    return kCyclesPerNs * virtual_i210::rawNowNs();
}
