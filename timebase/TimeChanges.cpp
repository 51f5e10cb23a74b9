#include "timebase/TimeChanges.h"

TimeChanges timeChanges{ignoreHardTime, ignoreSoftTime};

void ignoreHardTime(const char* /*interfaceName*/, unsigned long long /*ns*/) {}

void ignoreSoftTime(long long /*stepNs*/) {}
