#pragma once

/** CLOCK_REALTIME, ns; until 2106 where time_t has 32 bits. */
unsigned long long systemClockNs();

/** Notices that the system clock was set: its distance to the monotonic clock, which nobody sets,
 *  changes then. One caller at a time. */
class SystemSteps {
public:
    /** By how much the clock was set forward since the last call, if by leastNs or more; 0 at
     *  first. */
    long long since(long long leastNs);

private:
    bool isKnown_ = false;
    long long distanceNs_ = 0;
};
