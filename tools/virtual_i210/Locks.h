#pragma once

#include <pthread.h>

#include <cstdint>

namespace virtual_i210 {

/** As pthread_mutex_lock until an instant of CLOCK_MONOTONIC_RAW: while the owner waits, others
 * run. For a thread of a simulated run. */
int lockUntil(pthread_mutex_t& mutex, std::uint64_t rawNs);

/** As pthread_mutex_unlock. */
int unlock(pthread_mutex_t& mutex);

}  // namespace virtual_i210
