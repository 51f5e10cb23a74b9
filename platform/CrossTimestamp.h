#pragma once

#include <linux/ptp_clock.h>

#include "base/ptptime.h"

inline unsigned long long clockNs(const ptp_clock_time& reading) {
    return toNs(static_cast<unsigned long long>(reading.sec), reading.nsec);
}

/** Chooses from readings system, PHC, system, ... the PHC reading in the narrowest bracket of two
 *  system readings; the earliest of equals. The system time is the one before the PHC reading. */
ptp_ext_time_t narrowestBracket(const ptp_clock_time* readings, unsigned int samples);
