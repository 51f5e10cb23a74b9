#pragma once

#include "include/gPtpTimeData.h"

/** Who learns when a host changes the time that a master sends, nobody in deployed nodes, and what
 *  the host is told of it. A profile puts others in place before the first thread starts. Any
 *  thread calls. */
struct TimeChanges {
    /** ns: what the PHC is about to be set to. */
    void (*onHardTime)(const char* interfaceName, unsigned long long ns);

    /** stepNs: by how much the time beside the PHC is about to move. */
    void (*onSoftTime)(long long stepNs);

    /** The time at a system time, for the host itself, ns; the record may be the published one. */
    long long (*hostTimeNs)(const gPtpTimeDataStruct& record, unsigned long long systemNs);
};

extern TimeChanges timeChanges;

void ignoreHardTime(const char* interfaceName, unsigned long long ns);
void ignoreSoftTime(long long stepNs);
