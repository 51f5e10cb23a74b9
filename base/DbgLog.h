#pragma once

#include <cstdio>
#include <ctime>

#include "include/ZebEthTimeSynSupportInterface.h"

/** Level numbers of the log; they label a line and filter nothing. */
enum LogLevel { kAlways = 2, kInfo = 3, kDebug = 4, kError = 8 };

/** DbgTraceLevel as it stands now; a host may write it while threads run. */
inline int traceLevel() {
    return __atomic_load_n(&DbgTraceLevel, __ATOMIC_RELAXED);
}

/** The reading that stamps a log line. */
inline timespec logTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

/** Prints one log line as a single printf, so that lines of different threads stay whole, and
 *  flushes it. The format is a literal that ends with its own newline. */
#define ZEB_LOG(level, ...) ZEB_LOG_LINE(level, __LINE__, __func__, __VA_ARGS__)

/** As ZEB_LOG, with a line number that log readers rely on. */
#define ZEB_LOG_AT(level, line, ...) ZEB_LOG_LINE(level, line, __func__, __VA_ARGS__)

/** As ZEB_LOG, under the name of the function that log readers know the line by. */
#define ZEB_LOG_AS(function, level, ...) ZEB_LOG_LINE(level, __LINE__, function, __VA_ARGS__)

#define ZEB_LOG_LINE(level, line, function, format, ...)                                    \
    do {                                                                                    \
        const timespec logNow = logTime();                                                  \
        std::printf("[%s] [%d.%09u] <%s/%d->%s()>" format, dbgMsgType[level],               \
                    static_cast<int>(logNow.tv_sec), static_cast<unsigned>(logNow.tv_nsec), \
                    __FILE__, line, function, ##__VA_ARGS__);                               \
        std::fflush(stdout);                                                                \
    } while (false)

#pragma GCC visibility push(hidden)

/** Prints "name  trace line N" without a prefix and without a flush. */
void traceLine(const char* name, int line);

/** Ends the process after a trace line. Flushes first: abort does not, and a line that never
 *  reaches a pipe or file would explain nothing. */
[[noreturn]] void abandonAfterTraceLine();

/** traceLine followed by the end of the process. */
[[noreturn]] void fatalTraceLine(const char* name, int line);

/** Prints text behind the role character, the form that diagnostic tools read. */
void printRoleMarked(const char* text);

#pragma GCC visibility pop
