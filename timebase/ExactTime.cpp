#include <limits>

#include "base/Exports.h"
#include "base/Extended80.h"
#include "include/gPtpExactTime.h"

namespace {

constexpr long long kNoTime = std::numeric_limits<long long>::min();

unsigned long long bits(long long value) {
    return static_cast<unsigned long long>(value);
}

/** To the nearest, the same way on both sides of 0. */
unsigned long long rounded(long double value) {
    return bits(toS64(value < 0 ? value - 0.5L : value + 0.5L));
}

/** Master over system rate less 1: small, so that its product with decades keeps its nanoseconds.
 */
long double gainOf(const gPtpTimeDataStruct& data) {
    return loadExtended(data.rateRatio1) * loadExtended(data.rateRatio2) - 1;
}

constexpr long double kNoRate = -1;

}  // namespace

ZEB_ENTRY long long gPtpTimeAtSystem(const gPtpTimeDataStruct* data, long long systemNs) {
    const long double gain = gainOf(*data);
    if (gain == kNoRate) {
        return kNoTime;
    }
    const unsigned long long elapsed =
        bits(systemNs) - (data->localTime + bits(data->systemOffset));
    const auto signedElapsed = static_cast<long double>(static_cast<long long>(elapsed));
    return static_cast<long long>(data->localTime - bits(data->masterOffset) + elapsed +
                                  rounded(signedElapsed * gain));
}

ZEB_ENTRY long long gPtpSystemAtTime(const gPtpTimeDataStruct* data, long long timeNs) {
    const long double gain = gainOf(*data);
    if (gain == kNoRate) {
        return kNoTime;
    }
    const unsigned long long elapsed = bits(timeNs) - (data->localTime - bits(data->masterOffset));
    const auto signedElapsed = static_cast<long double>(static_cast<long long>(elapsed));
    return static_cast<long long>(data->localTime + bits(data->systemOffset) + elapsed -
                                  rounded(signedElapsed * gain / (1 + gain)));
}
