#include <cerrno>

#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/Timespec.h"

/** Calls that sleep. */

namespace {

using virtual_i210::conducting;
using virtual_i210::kNsPerSecond;
using virtual_i210::rawNowNs;
using virtual_i210::realWaits;

/** False when a signal ended the sleep. */
bool sleepUntil(std::uint64_t rawNs) {
    virtual_i210::chargeCall();
    do {
        if ((virtual_i210::waitFor({virtual_i210::WaitKind::kTime, 0, rawNs}) &
             virtual_i210::kWokenBySignal) != 0) {
            return false;
        }
    } while (rawNowNs() < rawNs);
    return true;
}

/** Result of clock_nanosleep. */
int sleepFor(std::uint64_t ns, timespec* remaining) {
    const std::uint64_t endNs = rawNowNs() + ns;
    if (sleepUntil(endNs)) {
        return 0;
    }
    if (remaining != nullptr) {
        const std::uint64_t now = rawNowNs();
        *remaining =
            virtual_i210::toTimespec(static_cast<std::int64_t>(now < endNs ? endNs - now : 0));
    }
    return EINTR;
}

bool canSleepBy(clockid_t clock) {
    std::uint64_t ns = 0;
    return clock != CLOCK_THREAD_CPUTIME_ID && virtual_i210::simulatedClock(clock, ns);
}

}  // namespace

VIRTUAL_I210_EXPORT int clock_nanosleep(clockid_t clock, int flags, const timespec* time,
                                        timespec* remaining) {
    if (conducting() == nullptr) {
        return realWaits().clockNanosleep(clock, flags, time, remaining);
    }
    if (time == nullptr) {
        return EFAULT;
    }
    if (!virtual_i210::isTime(*time) || !canSleepBy(clock)) {
        return EINVAL;
    }
    if ((flags & TIMER_ABSTIME) != 0) {
        return sleepUntil(virtual_i210::rawInstantOf(clock, *time)) ? 0 : EINTR;
    }
    return sleepFor(static_cast<std::uint64_t>(virtual_i210::limitedNs(*time)), remaining);
}

VIRTUAL_I210_EXPORT int nanosleep(const timespec* time, timespec* remaining) {
    if (conducting() == nullptr) {
        return realWaits().nanosleep(time, remaining);
    }
    const int result = clock_nanosleep(CLOCK_MONOTONIC, 0, time, remaining);
    return result == 0 ? 0 : virtual_i210::failWith(result);
}

VIRTUAL_I210_EXPORT int usleep(useconds_t microseconds) {
    const timespec time = virtual_i210::toTimespec(std::int64_t{microseconds} * 1000);
    return nanosleep(&time, nullptr);
}

VIRTUAL_I210_EXPORT unsigned sleep(unsigned seconds) {
    timespec time = virtual_i210::toTimespec(std::int64_t{seconds} * kNsPerSecond);
    return nanosleep(&time, &time) == 0 ? 0 : static_cast<unsigned>(time.tv_sec);
}
