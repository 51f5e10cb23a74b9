#include "timebase/SystemClock.h"

#include <ctime>

#include "base/Extended80.h"
#include "base/ptptime.h"

namespace {

unsigned long long readClock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    // A time_t of 32 bits is negative from 2038 on.
    const auto seconds = sizeof now.tv_sec == sizeof(int)
                             ? static_cast<unsigned long long>(static_cast<unsigned>(now.tv_sec))
                             : static_cast<unsigned long long>(now.tv_sec);
    return toNs(seconds, static_cast<unsigned long long>(now.tv_nsec));
}

}  // namespace

unsigned long long systemClockNs() {
    return readClock(CLOCK_REALTIME);
}

long long SystemSteps::since(long long leastNs) {
    constexpr int kTries = 4;
    for (int i = 0; i < kTries; ++i) {
        const unsigned long long before = readClock(CLOCK_MONOTONIC);
        const unsigned long long system = readClock(CLOCK_REALTIME);
        const unsigned long long after = readClock(CLOCK_MONOTONIC);
        const long long width = signedDiff(after, before);
        const long long distance =
            signedDiff(system, before + static_cast<unsigned long long>(width) / 2);
        const long long step = distance - distanceNs_;
        const bool isSame = isKnown_ && step < leastNs && step > -leastNs;
        if (isSame) {
            return 0;
        }
        if (width < leastNs) {
            const long long told = isKnown_ ? step : 0;
            isKnown_ = true;
            distanceNs_ = distance;
            return told;
        }
    }
    return 0;
}
