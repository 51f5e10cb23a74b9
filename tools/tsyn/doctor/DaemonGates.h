#pragma once

#include "tools/tsyn/doctor/Gates.h"

/** Gates of the running daemon: what it does on the wire. */
namespace tsyn::doctor {

Verdict judgeDaemon(const Evidence& evidence);
Verdict judgePeerDelay(const Evidence& evidence);
Verdict judgeTransmitStamps(const Evidence& evidence);
Verdict judgeReceiveStamps(const Evidence& evidence);
Verdict judgeRate(const Evidence& evidence);
Verdict judgeLinkDelay(const Evidence& evidence);

}  // namespace tsyn::doctor
