#pragma once

#include "tools/tsyn/doctor/Gates.h"

/** Gates of what is heard on the wire. */
namespace tsyn::doctor {

Verdict judgeFrames(const Evidence& evidence);
Verdict judgeVersion(const Evidence& evidence);
Verdict judgeDomain(const Evidence& evidence);
Verdict judgeVlan(const Evidence& evidence);
Verdict judgeTransport(const Evidence& evidence);
Verdict judgeMaster(const Evidence& evidence);
Verdict judgeFollowUp(const Evidence& evidence);
Verdict judgeSyncRate(const Evidence& evidence);
Verdict judgeCrc(const Evidence& evidence);

}  // namespace tsyn::doctor
