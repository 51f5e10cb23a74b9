#pragma once

#include "include/ZebEthTimeSynSupportInterface.h"

/* The line u(t) fitted through two clocks' readings: origin in ns, slope as a reduced fraction. */
extern unsigned long long slope_x;
extern unsigned long long slope_y;
extern long long slope_mZ;  ///< numerator
extern long long slope_mN;  ///< denominator, positive
