#pragma once

#include <ctime>

#include "base/ptptime.h"

/** The clock that silence and rates are measured by: nobody sets it. */
inline unsigned long long monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return toNs(now);
}
