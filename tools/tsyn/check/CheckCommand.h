#pragma once

#include "tools/tsyn/check/CheckOptions.h"

namespace tsyn {

/** Checks a capture and prints what it finds. Returns the exit status: 0 all right, 1 findings,
 *  2 with one line on standard error when the file could not be read. */
int checkCommand(const CheckOptions& options);

}  // namespace tsyn
