#pragma once

#include <cstdio>
#include <ctime>

#include "base/Exports.h"
#include "include/ZebEthTimeSynTrace.h"

/** '?' before a role started, then '1' master or '2' slave: the mark of role-marked lines. */
ZEB_EXPORT extern char MasterOrSlave;

/** Level numbers of the log; they label a line and filter nothing. */
enum LogLevel { kAlways = 2, kInfo = 3, kDebug = 4, kError = 8 };

/** What a trace level above these numbers turns on. */
enum TraceThreshold {
    kReportsAbove = 0,  ///< reports of rejected data and impossible times
    kAbortsAbove = 2    ///< trace lines, most of which end the process
};

/** The files that log readers know lines by: a line keeps its name wherever the code lives. */
namespace log_source {
inline constexpr const char* kControl = "api/ZebEthTimeSynSupportInterface.cpp";
inline constexpr const char* kMessages = "ptp/ptpclass.cpp";
inline constexpr const char* kSubTlvs = "autosar/TLVObject.cpp";
inline constexpr const char* kSegment = "timebase/osipc.cpp";
inline constexpr const char* kNetwork = "platform/NetworkService.cpp";
inline constexpr const char* kHardwareClock = "platform/i210helperLinux.cpp";
}  // namespace log_source

/** DbgTraceLevel as it stands now; a host may write it while threads run. */
inline int traceLevel() {
    return __atomic_load_n(&DbgTraceLevel, __ATOMIC_RELAXED);
}

inline bool reportsFaults() {
    return traceLevel() > kReportsAbove;
}

inline bool abortsOnTrace() {
    return traceLevel() > kAbortsAbove;
}

/** The reading that stamps a log line. */
inline timespec logTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

/** Prints one log line as a single printf, so that lines of different threads stay whole, and
 *  flushes it. The format is a literal that ends with its own newline. A source that logs names
 *  itself in a constant kLogSource. */
#define ZEB_LOG(level, ...) ZEB_LOG_LINE(level, __LINE__, __func__, __VA_ARGS__)

/** As ZEB_LOG, with a line number that log readers rely on. */
#define ZEB_LOG_AT(level, line, ...) ZEB_LOG_LINE(level, line, __func__, __VA_ARGS__)

/** As ZEB_LOG, under the name of the function that log readers know the line by. */
#define ZEB_LOG_AS(function, level, ...) ZEB_LOG_LINE(level, __LINE__, function, __VA_ARGS__)

/** The line that a caller looks for whom a function has just refused: no limit leaves it out. */
#define ZEB_LOG_REFUSAL(...) ZEB_LOG_BY(putLogLine, kError, __LINE__, __func__, __VA_ARGS__)

#define ZEB_LOG_LINE(level, line, function, ...) \
    ZEB_LOG_BY(printLogLine, level, line, function, __VA_ARGS__)

#define ZEB_LOG_BY(print, level, line, function, format, ...)                           \
    do {                                                                                \
        if (false) {                                                                    \
            std::printf(format, ##__VA_ARGS__); /* has the compiler check the values */ \
        }                                                                               \
        print("[%s] [%d.%09u] <%s/%d->%s()>" format, level, kLogSource, line, function, \
              ##__VA_ARGS__);                                                           \
    } while (false)

/** What takes lines in place of standard output. */
struct LogSteps {
    /** Whether a line of that level from that place in the source is taken. */
    bool (*admits)(int level, const char* source, int line);

    /** Takes a line of length bytes, its newline included. */
    void (*take)(int level, const char* text, int length);
};

/** Null for standard output, as deployed nodes print. Set before the first thread starts. */
extern const LogSteps* logSteps;

/** Formats a line that logSteps has admitted and hands it over, cut to what a log line may have. */
void handOverLogLine(int level, const char* format, ...);

/** Behind ZEB_LOG. The values are there before the clock is read, so a slow one does not make the
 *  stamp older than the line. */
template <typename... Values>
void putLogLine(const char* format, LogLevel level, const char* source, int line,
                const char* function, Values... values) {
    const timespec now = logTime();
    if (logSteps != nullptr) {
        handOverLogLine(level, format, dbgMsgType[level], static_cast<int>(now.tv_sec),
                        static_cast<unsigned>(now.tv_nsec), source, line, function, values...);
        return;
    }
    std::printf(format, dbgMsgType[level], static_cast<int>(now.tv_sec),
                static_cast<unsigned>(now.tv_nsec), source, line, function, values...);
    std::fflush(stdout);
}

/** As putLogLine, unless a limit leaves the line out. */
template <typename... Values>
void printLogLine(const char* format, LogLevel level, const char* source, int line,
                  const char* function, Values... values) {
    if (logSteps == nullptr || logSteps->admits(level, source, line)) {
        putLogLine(format, level, source, line, function, values...);
    }
}

/** Prints "name  trace line N" without a prefix and without a flush. */
void traceLine(const char* name, int line);

/** Ends the process after a trace line. Flushes first: abort does not, and a line that never
 *  reaches a pipe or file would explain nothing. */
[[noreturn]] void abandonAfterTraceLine();

/** traceLine followed by the end of the process. */
[[noreturn]] void fatalTraceLine(const char* name, int line);

/** Prints text behind the role character, the form that diagnostic tools read. */
void printRoleMarked(const char* text);

/** printRoleMarked of a formatted text, cut to 255 characters, while faults are reported. */
__attribute__((format(printf, 1, 2))) void reportFault(const char* format, ...);
