#include "tools/tsyn/run/OwnOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace tsyn {
namespace {

int openLog(const std::string& logTarget) {
    if (logTarget == "-") {
        return fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    }
    return open(logTarget.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
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
    // A reader that leaves ends tsyn through line(), not in the middle of the library.
    std::signal(SIGPIPE, SIG_IGN);
    return {};
}

bool OwnOutput::line(const std::string& text) {
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
