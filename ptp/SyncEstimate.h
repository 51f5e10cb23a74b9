#pragma once

/* What a slave computes from a Sync and its Follow_Up. Pure functions; times in ns. */

/** Nanoseconds of a correctionField (ns * 2^16), truncated toward zero. */
long long correctionNs(long long correctionField);

/** Rate ratio of a Follow_Up, 1 + field * 2^-41. The field reads as unsigned, so a negative offset
 *  becomes a large positive one: deployed slaves of this system do the same. */
long double masterRateRatio(unsigned int cumulativeScaledRateOffset);

/** correction + masterRatio * linkDelay * neighbourRatio, truncated. */
long long totalCorrectionNs(long long correction, long double masterRatio,
                            unsigned long long linkDelay, long double neighbourRatio);

/** Master time over local time between two Syncs; negative differences read as unsigned. */
long double rateRatio(unsigned long long masterNow, unsigned long long masterBefore,
                      unsigned long long localNow, unsigned long long localBefore);

/** Within 250 ppm of 1. A ratio that is no number is out of range. */
bool isRateInRange(long double ratio);
