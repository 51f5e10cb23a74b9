#include "ptp/SyncEstimate.h"

#include "base/Extended80.h"
#include "include/gPtpTimeData.h"

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
    // Doubles compared in extended precision: an exact 1.00025 passes, an exact 0.99975 does not.
    return ratio <= kFastestMasterRate && ratio >= kSlowestMasterRate;
}
