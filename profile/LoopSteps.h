#pragma once

/* What the event loop does beside sending and receiving, each step a whole. */

inline constexpr unsigned long long kNoDeadline = ~0ULL;

struct LoopSteps {
    /** Told on every turn of the loop, before it waits. Returns when the next turn is needed at the
     *  latest, CLOCK_MONOTONIC ns, or kNoDeadline. */
    unsigned long long (*tick)(unsigned long long monotonicNs);

    /** Takes what lies in the error queue of the socket while no transmission waits for it. Returns
     *  whether anything lay there. */
    bool (*takeStrayStamps)(int socket);
};

extern LoopSteps loopSteps;

/** Has nothing to do. */
unsigned long long neverDue(unsigned long long monotonicNs);

/** Counts and drops them: left behind, they would wake the loop for ever. */
bool dropStrayStamps(int socket);
