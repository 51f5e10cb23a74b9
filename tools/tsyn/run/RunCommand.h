#pragma once

#include "tools/tsyn/run/RunOptions.h"

namespace tsyn {

/** Runs a daemon until its duration is over, SIGINT or SIGTERM arrives or the reader of standard
 *  output has gone. Returns the exit status: 0 after a clean end, 1 with one line on standard
 *  error when it could not start. */
int runCommand(const RunOptions& options);

}  // namespace tsyn
