#pragma once

#include <linux/ptp_clock.h>

#include "base/ptptime.h"

/* System clock and PHC at one instant, by the best means that the clock device has. */
namespace cross_timestamps {

/** What is said of an instant when nothing is known of its bracket. */
inline constexpr unsigned int kUnknownHalfWidth = 1000;

/** A cross-timestamp: both 0 without a reading. True system time lies within halfWidthNs. */
struct Bracketed {
    ptp_ext_time_t times;
    unsigned int halfWidthNs;
};

/** As CardSteps::crossTimestamp: the middle of the narrowest bracket. */
ptp_ext_time_t best(int phcDevice);

/** Half the width of the bracket that this thread took last by best. */
unsigned int lastHalfWidthNs();

/** The narrowest bracket among samples of system, PHC, system time. */
Bracketed narrowest(const ptp_clock_time (*samples)[3], unsigned int count);

}  // namespace cross_timestamps
