#include "profile/LogSwitches.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "base/DbgLog.h"
#include "base/MutexLock.h"
#include "base/ptptime.h"
#include "profile/Profile.h"

namespace {

constexpr int kWarning = 7;

/** One place in the source and its lines within the current second. */
struct Place {
    const char* source;
    int line;
    time_t second;
    unsigned int taken;
    unsigned int leftOut;
};

// Two places that share an entry take turns in it, which lets a line too many through.
constexpr std::size_t kPlaces = 64;
Place places[kPlaces];
pthread_mutex_t placesMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t sinkMutex = PTHREAD_MUTEX_INITIALIZER;

time_t currentSecond() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

Place& placeOf(const char* source, int line) {
    const auto key = reinterpret_cast<std::uintptr_t>(source) + static_cast<unsigned>(line);
    return places[key % kPlaces];
}

/** Takes a place whose second is over out of the table; false when nothing was left out there. */
bool takeEnded(time_t second, Place& ended) {
    const QuietLock lock(placesMutex);
    for (Place& place : places) {
        if (place.leftOut != 0 && place.second != second) {
            ended = place;
            place.leftOut = 0;
            return true;
        }
    }
    return false;
}

void tellLeftOut(time_t second) {
    Place ended{};
    while (takeEnded(second, ended)) {
        const timespec now = logTime();
        handOverLogLine(kWarning, "[%s] [%d.%09u] <%s/%d->%s()>%u more lines were left out\n",
                        dbgMsgType[kWarning], static_cast<int>(now.tv_sec),
                        static_cast<unsigned>(now.tv_nsec), ended.source, ended.line, "log",
                        ended.leftOut);
    }
}

/** Counts a line; false when its place has had its lines of this second. */
bool countLine(const char* source, int line, time_t second) {
    const QuietLock lock(placesMutex);
    Place& place = placeOf(source, line);
    const bool isSame = place.source == source && place.line == line;
    if (!isSame && place.leftOut != 0 && place.second == second) {
        return true;  // what was left out there is still to be told
    }
    if (!isSame || place.second != second) {
        place = {source, line, second, 0, 0};
    }
    if (place.taken < profile::current().logLinesPerSecond) {
        ++place.taken;
        return true;
    }
    ++place.leftOut;
    return false;
}

bool admits(int level, const char* source, int line) {
    const TSynProfile& profile = profile::current();
    if (level < profile.logThreshold) {
        return false;
    }
    if (profile.logLinesPerSecond == 0) {
        return true;
    }
    const time_t second = currentSecond();
    tellLeftOut(second);
    return countLine(source, line, second);
}

/** Whether standard output takes a line at once. A pipe that polls writable has room for more than
 *  a line; one whose reader has gone, or that is full, costs the line. */
bool takesLine() {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return poll(&output, 1, 0) > 0 && (output.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

void writeOut(int /*level*/, const char* text, int length) {
    const QuietLock lock(sinkMutex);
    if (takesLine()) {
        const ssize_t written = write(STDOUT_FILENO, text, static_cast<std::size_t>(length));
        static_cast<void>(written);  // a full disk costs the line as well
    }
}

void callSink(int level, const char* text, int length) {
    char line[1024];
    std::snprintf(line, sizeof line, "%.*s", length - 1, text);
    const QuietLock lock(sinkMutex);
    profile::current().logSink(level, line, profile::current().logContext);
}

constexpr LogSteps kToOutput{admits, writeOut};
constexpr LogSteps kToSink{admits, callSink};

}  // namespace

void log_switches::install(const TSynProfile& profile) {
    if (profile.logSink != nullptr) {
        logSteps = &kToSink;
    } else if (profile.logThreshold != 0 || profile.logLinesPerSecond != 0) {
        logSteps = &kToOutput;
    } else {
        logSteps = nullptr;
    }
}
