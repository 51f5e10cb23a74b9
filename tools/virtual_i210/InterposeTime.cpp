#include <cerrno>

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

/** The machine's clock must not be touched by a program that lives in another time. */
VIRTUAL_I210_EXPORT int settimeofday(const timeval* time, const struct timezone* zone) noexcept {
    if (!virtual_i210::timeIsSimulated()) {
        return realWaits().settimeofday(time, zone);
    }
    if (time == nullptr) {
        return 0;
    }
    const timespec wished = {time->tv_sec, 1000 * time->tv_usec};
    return clock_settime(CLOCK_REALTIME, &wished);
}

VIRTUAL_I210_EXPORT int adjtimex(timex* adjustment) noexcept {
    return virtual_i210::timeIsSimulated() ? clock_adjtime(CLOCK_REALTIME, adjustment)
                                           : realWaits().adjtimex(adjustment);
}

VIRTUAL_I210_EXPORT int ntp_adjtime(timex* adjustment) noexcept {
    return adjtimex(adjustment);
}

VIRTUAL_I210_EXPORT int adjtime(const timeval* wished, timeval* left) noexcept {
    return virtual_i210::timeIsSimulated() ? virtual_i210::failWith(EPERM)
                                           : realWaits().adjtime(wished, left);
}

VIRTUAL_I210_EXPORT clock_t clock() noexcept {
    timespec worked{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &worked);
    return static_cast<clock_t>(virtual_i210::toNs(worked) / 1000);
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
