#pragma once

#include "tools/tsyn/doctor/DoctorOptions.h"

namespace tsyn {

/** Looks at the interface and prints what each gate came to. Returns the exit status: 0 all pass, 1
 *  one fails, 2 with one line on standard error when nothing can be looked at. */
int doctorCommand(const DoctorOptions& options);

}  // namespace tsyn
