#pragma once

#include <sys/types.h>

#include "tools/virtual_i210/simulated/Conductor.h"

namespace virtual_i210 {

/** Sends a signal to a process of the run by `send`, which returns as kill does, and returns its
 *  result once the process has met the signal or has ended. For the thread whose turn it is. */
int signalProcess(Conductor& conductor, pid_t pid, int number, int (*send)(pid_t, int));

}  // namespace virtual_i210
