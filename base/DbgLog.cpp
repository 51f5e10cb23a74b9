#include "base/DbgLog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>

ZEB_EXPORT int DbgTraceLevel = 4;

ZEB_EXPORT const char* dbgMsgType[9] = {"DISABLED", "DEACTIVATED", "ALWAYS",  "INFO", "DEBUG",
                                        "NOTICE",   "ALERT",       "WARNING", "ERROR"};

char MasterOrSlave = '?';

const LogSteps* logSteps = nullptr;

void handOverLogLine(int level, const char* format, ...) {
    char text[1024];
    constexpr int kLongest = sizeof text - 1;
    va_list values;
    va_start(values, format);
    const int wanted = std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    if (wanted <= 0) {
        return;
    }
    const int length = std::min(wanted, kLongest);
    text[length - 1] = '\n';
    logSteps->take(level, text, length);
}

void traceLine(const char* name, int line) {
    std::fprintf(stdout, "%s  trace line %d\n", name, line);
}

void abandonAfterTraceLine() {
    std::fflush(stdout);
    std::abort();
}

void fatalTraceLine(const char* name, int line) {
    traceLine(name, line);
    abandonAfterTraceLine();
}

void printRoleMarked(const char* text) {
    std::fprintf(stdout, "%c%s\n", __atomic_load_n(&MasterOrSlave, __ATOMIC_RELAXED), text);
}

void reportFault(const char* format, ...) {
    if (!reportsFaults()) {
        return;
    }
    char text[256];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    printRoleMarked(text);
}
