#pragma once

#include "base/Exports.h"
#include "base/ptptime.h"

/** One line for a frame sent ("<<") or received (">>"), when bit 7 of the trace level is set and
 *  the level is above 3. length bounds what is read of the frame, which starts at the PTP header.
 *  Any thread. */
ZEB_ENTRY void DisplayIOData(const char* name, ptp_time_t* timestamp, const char* text,
                             unsigned char* frame, int length);
