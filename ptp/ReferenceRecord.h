#pragma once

/** Pairs of a clock reading and the process CPU time, kept for inspection with a debugger:
 *  slot 0 by Sync reception, slot 1 by Sync transmission. */
struct ReferenceRecord {
    unsigned long long hardwareTime[2];
    unsigned long long cpuTime[2];
};

extern ReferenceRecord referenceRecord;

/** Process CPU time in ns as 32-bit arithmetic gives it, widened. */
long long processCpuTimeNs();
