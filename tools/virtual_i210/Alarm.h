#pragma once

#include <sys/time.h>

#include <cstdint>

namespace virtual_i210 {

/** The timer that alarm and setitimer set, in simulated time: it rings when a thread of the process
 *  waits, by a signal to that thread. For the thread whose turn it is. */

/** When it rings, or kNever. */
std::uint64_t alarmNs();
/** Whether a handler has run since it was due. */
bool ringIfDue();
/** As setitimer and getitimer of ITIMER_REAL. */
void setAlarm(const itimerval& wished);
itimerval alarmLeft();
/** A new process has none. */
void forgetAlarm();

}  // namespace virtual_i210
