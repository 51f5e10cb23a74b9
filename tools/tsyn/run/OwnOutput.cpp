#include "tools/tsyn/run/OwnOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace tsyn {
namespace {

/** A reader that takes nothing for so long costs the line. */
constexpr int kPatienceMs = 1000;
constexpr int kNeverWaits = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/** Regular files always take what is written. */
bool mayBeFull(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && !S_ISREG(status.st_mode);
}

/** The library prints as deployed nodes do, and would wait for a pipe that nobody empties. Opened
 *  anew where that can be, so that nobody else's writing changes with ours. */
int openStandardError() {
    const int anew =
        mayBeFull(STDERR_FILENO) ? open("/proc/self/fd/2", O_WRONLY | kNeverWaits) : -1;
    return anew >= 0 ? anew : fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
}

int openLog(const std::string& logTarget) {
    if (logTarget == "-") {
        return openStandardError();
    }
    return open(logTarget.c_str(), O_WRONLY | O_CREAT | O_APPEND | kNeverWaits, 0644);
}

/** Readable while a signal that asks for the end waits to be taken. */
int openEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

}  // namespace

std::string OwnOutput::separate(const std::string& logTarget) {
    const tools::OwnDescriptor log(openLog(logTarget));
    if (!log.isOpen()) {
        return "--log " + logTarget + ": cannot be opened (" + std::strerror(errno) +
               "); name a file in a folder that can be written";
    }
    fd_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    if (!fd_.isOpen() || dup2(log.get(), STDOUT_FILENO) < 0) {
        return std::string("standard output cannot be redirected (") + std::strerror(errno) +
               "); start tsyn with an open standard output";
    }
    if (mayBeFull(fd_.get())) {
        endSignals_.reset(openEndSignals());
    }
    // A reader that leaves ends tsyn through line(), not in the middle of the library.
    std::signal(SIGPIPE, SIG_IGN);
    return {};
}

bool OwnOutput::hasRoom() const {
    pollfd descriptors[] = {{fd_.get(), POLLOUT, 0}, {endSignals_.get(), POLLIN, 0}};
    return !endSignals_.isOpen() || poll(descriptors, 2, kPatienceMs) < 0 ||
           descriptors[0].revents != 0;
}

bool OwnOutput::line(const std::string& text) {
    if (!hasRoom()) {
        return true;
    }
    const std::string whole = text + "\n";
    std::size_t done = 0;
    while (done < whole.size()) {
        const ssize_t count = write(fd_.get(), whole.data() + done, whole.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

}  // namespace tsyn
