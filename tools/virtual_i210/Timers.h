#pragma once

#include <sys/timerfd.h>

#include <cstdint>

namespace virtual_i210 {

/** The timerfd descriptors of this process in a simulated run: an eventfd stands in for each, and
 *  whoever waits for descriptors writes the expirations that have come, so that poll, epoll and
 *  read stay the kernel's own. For the thread whose turn it is. */

int createTimer(clockid_t clock, int flags);
bool isTimer(int fd);
/** As timerfd_settime and timerfd_gettime. */
int setTimer(int fd, int flags, const itimerspec& wished, itimerspec* before);
int timeLeft(int fd, itimerspec& left);
void closeTimer(int fd);

/** Makes the timers that have expired readable. */
void fireTimers();
/** The next expiration, or kNever. */
std::uint64_t nextTimerNs();

}  // namespace virtual_i210
