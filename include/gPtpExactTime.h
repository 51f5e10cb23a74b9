/** Exact conversions of the published time, beside get_1AS_time and its inverse, which round to
 *  256 ns. Compile as C99 and as C++. */
#pragma once

#include "gPtpTimeData.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Grandmaster time at a CLOCK_REALTIME reading, both ns, within 1 ns of the record's line. A
 *  record that holds no time yet gives -2^63. Reads only the record; any thread. */
long long gPtpTimeAtSystem(const gPtpTimeDataStruct* data, long long systemNs);

/** The CLOCK_REALTIME reading at a grandmaster time; as gPtpTimeAtSystem. */
long long gPtpSystemAtTime(const gPtpTimeDataStruct* data, long long timeNs);

#ifdef __cplusplus
}
#endif
