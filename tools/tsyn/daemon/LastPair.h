#pragma once

#include "include/gPtpTimeData.h"

namespace tsyn {

/** Whether the slave took the last pair of Sync and Follow_Up for its time. */
bool lastPairWasTaken(const gPtpTimeDataStruct& record);

}  // namespace tsyn
