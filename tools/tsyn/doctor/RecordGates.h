#pragma once

#include "tools/tsyn/doctor/Gates.h"

namespace tsyn::doctor {

/** What the running daemon publishes. */
Verdict judgeRecord(const Evidence& evidence);

}  // namespace tsyn::doctor
