#pragma once

#include <algorithm>

/** Deadlines on a grid of CLOCK_MONOTONIC, ns: being late once moves none of those that follow. */
struct Periodic {
    unsigned long long dueNs = 0;
    unsigned long long periodNs = 1;

    void restart(unsigned long long nowNs) { dueNs = nowNs; }

    bool isDue(unsigned long long nowNs) const { return dueNs <= nowNs; }

    /** The next deadline; those that passed meanwhile are left out. */
    void advance(unsigned long long nowNs) {
        dueNs += periodNs;
        if (dueNs <= nowNs) {
            dueNs += ((nowNs - dueNs) / periodNs + 1) * periodNs;
        }
    }
};
