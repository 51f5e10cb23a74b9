#pragma once

#include <optional>

/* What roles do on their way up, whichever threads they have. function: that log readers know the
 * lines by. */

inline constexpr int kAnnouncePeriodMs = 1000;

/** '1' for a master, '2' for a slave. */
void setRoleMark(char mark);

/** The PTP port number: the low 16 bits of the interface index, which may all be 0. None (logged)
 *  when there is no such interface. */
std::optional<unsigned short> portNumber(const char* function, const char* ifName);

/** Whole milliseconds; what no int holds becomes the longest period rather than a flood. */
int wholeMilliseconds(double milliseconds);

void setHardwareClockToSystemTime(const char* function, const char* ifName);
