#include "timebase/BoundedTime.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "include/gPtpExactTime.h"
#include "timebase/SystemClock.h"

namespace {

constexpr long long kEarliest = std::numeric_limits<long long>::min();
constexpr long long kLatest = std::numeric_limits<long long>::max();
constexpr unsigned int kNoBound = ~0U;

gPtpTimeQuality qualityOf(const gPtpTimeDataStruct& record) {
    gPtpTimeQuality quality;
    std::memcpy(&quality, record.unused172, sizeof quality);
    return quality;
}

unsigned int sequenceOf(const gPtpTimeDataStruct* shared) {
    const unsigned char* const at = shared->unused172 + offsetof(gPtpTimeQuality, sequence);
    return __atomic_load_n(reinterpret_cast<const unsigned int*>(at), __ATOMIC_ACQUIRE);
}

bool isBounded(unsigned char state) {
    return state == TSYN_STATE_SYNCHRONISED || state == TSYN_STATE_HOLDOVER;
}

}  // namespace

TSynBoundedTime boundedTimeAt(const gPtpTimeDataStruct& record, long long systemNs) {
    const gPtpTimeQuality quality = qualityOf(record);
    TSynBoundedTime time{};
    time.state = isBounded(quality.state) && systemNs > quality.voidAfterNs
                     ? static_cast<unsigned int>(TSYN_STATE_LOST)
                     : quality.state;
    time.stepCount = quality.stepCount;
    time.timeNs = gPtpTimeAtSystem(&record, systemNs);
    if (time.timeNs == kEarliest || quality.boundNs == kNoBound ||
        !(isBounded(static_cast<unsigned char>(time.state)) ||
          time.state == TSYN_STATE_ACQUIRING)) {
        time.earliestNs = kEarliest;
        time.latestNs = kLatest;
        return time;
    }
    const unsigned long long anchorNs =
        record.localTime + static_cast<unsigned long long>(record.systemOffset);
    const auto age = static_cast<double>(
        static_cast<long long>(static_cast<unsigned long long>(systemNs) - anchorNs));
    const double grown = std::fabs(age) * quality.boundGrowthPpb / 1e9;
    const long long half =
        static_cast<long long>(quality.boundNs) + static_cast<long long>(std::ceil(grown));
    time.earliestNs = time.timeNs - half;
    time.latestNs = time.timeNs + half;
    return time;
}

bool readTogether(const gPtpTimeDataStruct* shared, gPtpTimeDataStruct& copy, long long& systemNs) {
    constexpr int kTries = 1000;
    for (int i = 0; i < kTries; ++i) {
        const unsigned int before = sequenceOf(shared);
        std::memcpy(&copy, shared, sizeof copy);
        systemNs = static_cast<long long>(systemClockNs());
        __atomic_thread_fence(__ATOMIC_SEQ_CST);
        if (before % 2 == 0 && before == sequenceOf(shared)) {
            return qualityOf(copy).magic == kTimeQualityMagic;
        }
    }
    return false;
}
