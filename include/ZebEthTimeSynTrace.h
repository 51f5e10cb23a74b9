/** The two variables that steer what the library prints, part of the control interface. Compiles as
 *  C99 and as C++. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/** Trace level, initially 4. Hosts set it to 2 or lower before the first call: above 2 the first
 *  call prints a trace line and aborts the process. Above 0 it turns on the reports of rejected
 *  AUTOSAR data and of impossible peer-delay times. */
extern int DbgTraceLevel;

/** Names of the log levels 0 to 8; a host may replace entries. */
extern const char* dbgMsgType[9];

#ifdef __cplusplus
}
#endif
