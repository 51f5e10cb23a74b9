#pragma once

#include "include/gPtpTimeData.h"

/* Grandmaster time at an instant t of the system clock lies on the line
 *
 *     localTime - masterOffset + (t - localTime - systemOffset) * rateRatio1 * rateRatio2
 *
 * whose parameters stand in the published record. It is computed in four ways, which differ in
 * where they round; hosts, readers and peers that are deployed know each result to the bit:
 *
 *     get_1AS_time(_invers)  readers:       every step rounded to double, so steps of 256 ns
 *     currentTimeNs          the host:      each product truncated to whole ns, exact otherwise
 *     referenceTimeNs        core dumps:    as readers, plus the process CPU time
 *     responseCorrectionNs   the requester: from a PHC instant, one product, truncated
 */

/** Grandmaster time plus the host's soft offset at a system time, ns. */
long long currentTimeNs(const gPtpTimeDataStruct& record, unsigned long long systemNs);

/** Grandmaster time at system time 0, advanced by the CPU time at the given rate (master over
 *  system clock), ns. */
unsigned long long referenceTimeNs(long long phcNs, long long masterOffset, long long systemOffset,
                                   long double rate, long long cpuNs);

/** Grandmaster time at the PHC instant at which a response left, ns. */
long long responseCorrectionNs(const gPtpTimeDataStruct& record, unsigned long long txNs);
