#pragma once

#include "base/Exports.h"
#include "include/ZebEthTimeSynSupportInterface.h"

/* The line u(t) fitted through two clocks' readings: origin in ns, slope as a reduced fraction. */
ZEB_EXPORT extern unsigned long long slope_x;
ZEB_EXPORT extern unsigned long long slope_y;
ZEB_EXPORT extern long long slope_mZ;  ///< numerator
ZEB_EXPORT extern long long slope_mN;  ///< denominator, positive
