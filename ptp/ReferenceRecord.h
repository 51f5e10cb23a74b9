#pragma once

/** The last pairs of a clock reading and the process CPU time: slot 0 by Sync reception, slot 1 by
 *  Sync transmission. Nothing here reads them: in a core dump they tell how far the clock and the
 *  process had come. */
struct ReferenceRecord {
    unsigned long long hardwareTime[2];
    unsigned long long cpuTime[2];
};

extern ReferenceRecord referenceRecord;

/** Process CPU time in ns as 32-bit arithmetic gives it, widened. */
long long processCpuTimeNs();
