#include "ptp/SyncEstimate.h"

#include "base/Extended80.h"

namespace {

// Double constants compared in extended precision: an exact 1.00025 passes, 0.99975 does not.
constexpr double kFastestRate = 1.00025;
constexpr double kSlowestRate = 0.99975;

}  // namespace

long long correctionNs(long long correctionField) {
    return (correctionField < 0 ? correctionField + 0xFFFF : correctionField) >> 16;
}

long double masterRateRatio(unsigned int cumulativeScaledRateOffset) {
    constexpr long double kScale = 1.0L / 2199023255552.0L;  // 2^-41
    return 1.0L + static_cast<long double>(cumulativeScaledRateOffset) * kScale;
}

long long totalCorrectionNs(long long correction, long double masterRatio,
                            unsigned long long linkDelay, long double neighbourRatio) {
    const long double delay = masterRatio * static_cast<long double>(linkDelay) * neighbourRatio;
    return toS64(static_cast<long double>(correction) + delay);
}

long double rateRatio(unsigned long long masterNow, unsigned long long masterBefore,
                      unsigned long long localNow, unsigned long long localBefore) {
    return unsignedDiff(masterNow, masterBefore) / unsignedDiff(localNow, localBefore);
}

bool isRateInRange(long double ratio) {
    return ratio <= kFastestRate && ratio >= kSlowestRate;
}

unsigned long long referenceTime(long long phcTime, long long offset, long long systemOffset,
                                 long double rate, long long cpuTime) {
    const auto phc = static_cast<unsigned long long>(phcTime);
    const double k = static_cast<double>(rate);
    const double synchronised =
        std::fabs(static_cast<double>(signedDiff(phc, static_cast<unsigned long long>(offset))));
    const double elapsed = static_cast<double>(
        static_cast<long long>(0 - phc - static_cast<unsigned long long>(systemOffset)));
    const double scaled = elapsed * k;
    const double atZero = synchronised + scaled;
    const double cpu = k * static_cast<double>(cpuTime);
    return doubleToU64(atZero + cpu);
}
