#include "platform/CrossTimestamp.h"

#include <cstddef>
#include <limits>

#include "base/Extended80.h"

ptp_ext_time_t narrowestBracket(const ptp_clock_time* readings, unsigned int samples) {
    long long narrowest = std::numeric_limits<long long>::max();
    ptp_ext_time_t best{};
    for (std::size_t k = 0; k < samples; ++k) {
        const unsigned long long before = clockNs(readings[2 * k]);
        const unsigned long long after = clockNs(readings[2 * k + 2]);
        const long long width = signedDiff(after, before);
        if (width < narrowest) {
            narrowest = width;
            best = {before, clockNs(readings[2 * k + 1])};
        }
    }
    return best;
}
