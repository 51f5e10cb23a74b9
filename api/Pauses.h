#pragma once

#include <sys/types.h>

/* The sleeps of start and end in one place, since hosts time their own start-up by their sum: a
 * first Start blocks for kAfterBlockingSignals + kSettle, about 1.1 s, and the first frame leaves
 * after kAfterBlockingSignals once more, about 2.1 s after the call. */

/** In the host's thread and then in the main thread: a SIGUSR1 that came just before the mask is
 *  handled before threads inherit the mask and sockets are opened. */
inline constexpr useconds_t kAfterBlockingSignals = 1000000;

/** Start returns after it, when the main thread has logged its parameters and published its names;
 *  a master keeps its service for as long after its last pump. */
inline constexpr useconds_t kSettle = 120757;

/** A host that condvar woke still finds the stack in SOCK for this time. */
inline constexpr useconds_t kBeforeRestoringSock = 1000000;

/** With a quick start, Start returns after it even if the main thread has published nothing yet. */
inline constexpr long kQuickSettleNs = 40000000;

/** Between two looks at threadCount, which only a host's own hooks ever raise. */
inline constexpr useconds_t kThreadCountPoll = 1000000;
