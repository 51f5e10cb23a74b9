#pragma once

#include "tools/tsyn/record/RecordOptions.h"

namespace tsyn {

/** Records until the duration is over, SIGINT or SIGTERM. Returns the exit status: 0, or 1 with one
 *  line on standard error; what was written until then can be read. */
int recordCommand(const RecordOptions& options);

}  // namespace tsyn
