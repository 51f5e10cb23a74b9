#pragma once

/** Who learns when a host changes the time that a master sends. Nobody in deployed nodes, unless a
 *  profile puts others in place before the first thread starts. Any thread calls. */
struct TimeChanges {
    /** ns: what the PHC is about to be set to. */
    void (*onHardTime)(const char* interfaceName, unsigned long long ns);

    /** stepNs: by how much the time beside the PHC is about to move. */
    void (*onSoftTime)(long long stepNs);
};

extern TimeChanges timeChanges;

void ignoreHardTime(const char* interfaceName, unsigned long long ns);
void ignoreSoftTime(long long stepNs);
