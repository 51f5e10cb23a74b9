#include "tools/tsyn/run/LogOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/common/OwnDescriptor.h"

namespace tsyn {
namespace {

std::atomic<int> lineFailure{0};

/** As the library does it: a pipe that nobody empties costs lines, not the daemon's time. */
void writeLine(int /*level*/, const char* line, void* /*context*/) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) <= 0) {
        return;
    }
    char newline = '\n';
    const iovec parts[] = {{const_cast<char*>(line), std::strlen(line)}, {&newline, 1}};
    if (writev(STDOUT_FILENO, parts, 2) < 0 && errno != EAGAIN && errno != EINTR) {
        lineFailure = errno;
    }
}

}  // namespace

void log_output::watch(TSynProfile& profile) {
    if (profile.logSink == nullptr &&
        (profile.logThreshold != 0 || profile.logLinesPerSecond != 0)) {
        profile.logSink = writeLine;
    }
}

int log_output::failure() {
    struct stat status {};
    const bool mayBeFull = fstat(STDOUT_FILENO, &status) == 0 &&
                           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
    // Deployed nodes print through it; why it failed is not kept.
    if (lineFailure == 0 && std::ferror(stdout) != 0 && !mayBeFull) {
        return EIO;
    }
    return lineFailure;
}

std::string log_output::reopen(const std::string& logTarget) {
    if (logTarget == "-") {
        return {};
    }
    const tools::OwnDescriptor log(
        open(logTarget.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    if (!log.isOpen() || dup2(log.get(), STDOUT_FILENO) < 0) {
        return "--log " + logTarget + ": cannot be opened anew (" + std::strerror(errno) +
               "); the log goes on in the old file";
    }
    return {};
}

}  // namespace tsyn
