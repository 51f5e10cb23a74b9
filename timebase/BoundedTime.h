#pragma once

#include "include/ZebEthTimeSynProfile.h"
#include "include/gPtpTimeData.h"
#include "include/gPtpTimeQuality.h"

/** What a record says of the time at a system time; a silence that its writer did not live to tell
 *  is seen by the age. */
TSynBoundedTime boundedTimeAt(const gPtpTimeDataStruct& record, long long systemNs);

/** A copy of a record that belongs together, and a system time read meanwhile. False when its
 *  writer tells nothing of its quality or was at work all the time. */
bool readTogether(const gPtpTimeDataStruct* shared, gPtpTimeDataStruct& copy, long long& systemNs);
