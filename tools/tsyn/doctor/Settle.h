#pragma once

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** Completes what the daemon uses by what it sends, takes and publishes, and then what is expected
 *  of it: what was asked for, else what it uses, else what `tsyn run` has as its defaults. Pure. */
void settle(Evidence& evidence);

}  // namespace tsyn::doctor
