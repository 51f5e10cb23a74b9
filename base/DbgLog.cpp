#include "base/DbgLog.h"

#include <cstdlib>

extern char MasterOrSlave;

int DbgTraceLevel = 4;

const char* dbgMsgType[9] = {"DISABLED", "DEACTIVATED", "ALWAYS",  "INFO", "DEBUG",
                             "NOTICE",   "ALERT",       "WARNING", "ERROR"};

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
