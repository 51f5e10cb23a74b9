#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tools/simulate/Progress.h"

namespace simulate {

/** How all runs are to be done. */
struct WorkSetup {
    unsigned atOnce = 1;
    std::string buildFolder;
    bool picture = true;
};

/** CPUs that this process may use. */
std::vector<int> allowedCpus();

/** Does each run in a process of its own, some at once, each bound to one CPU: the programs of a
 *  run take turns, and passing the turn to another CPU takes longer. Outcomes are in the order of
 *  the jobs. SIGINT, SIGTERM and SIGHUP end all runs; theirs is the verdict "interrupted", or "not
 *  begun", and a folder in which nothing was written is removed. */
std::vector<Outcome> runAll(const std::vector<Job>& jobs, const WorkSetup& setup,
                            Progress& progress);

}  // namespace simulate
