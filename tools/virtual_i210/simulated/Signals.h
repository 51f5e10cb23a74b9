#pragma once

#include <sys/types.h>

#include <functional>

#include "tools/virtual_i210/simulated/Conductor.h"

namespace virtual_i210 {

/** Sends a signal to a process of the run by `send`, which returns as kill does, and returns its
 *  result once the process has met the signal or has ended. For the thread whose turn it is. */
int signalProcess(Conductor& conductor, pid_t pid, int number, int (*send)(pid_t, int));

/** The same for one thread of a process, by `send`, which returns as pthread_kill does. */
int signalThread(Conductor& conductor, pid_t pid, std::uint64_t handle, int number,
                 const std::function<int()>& send);

}  // namespace virtual_i210
