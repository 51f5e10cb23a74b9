#include "tools/tsyn/watch/Waiting.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {
namespace {

volatile std::sig_atomic_t endAsked = 0;

void askForEnd(int /*signal*/) {
    endAsked = 1;
}

}  // namespace

Waiting::Waiting() {
    // Blocked but while waiting, so that none goes unseen between a look at the flag and the wait.
    sigset_t ends{};
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, &maskWhileWaiting_);
    sigdelset(&maskWhileWaiting_, SIGINT);
    sigdelset(&maskWhileWaiting_, SIGTERM);
    struct sigaction action {};
    action.sa_handler = askForEnd;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool Waiting::isEndAsked() {
    return endAsked != 0;
}

int Waiting::wait(double momentS, pollfd* descriptors, std::size_t count) const {
    const double waitS = std::max(0.0, momentS - monotonicNowS());
    timespec length{};
    length.tv_sec = static_cast<time_t>(waitS);
    length.tv_nsec = static_cast<long>(1e9 * (waitS - static_cast<double>(length.tv_sec)));
    return ppoll(descriptors, count, &length, &maskWhileWaiting_);
}

void Waiting::until(double momentS, bool withKeys) {
    pollfd keys{STDIN_FILENO, POLLIN, 0};
    const int ready = wait(momentS, &keys, withKeys ? 1 : 0);
    hasHungUp_ = ready > 0 && (keys.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void Waiting::until(double momentS, std::vector<pollfd>& descriptors) {
    if (wait(momentS, descriptors.data(), descriptors.size()) < 0) {
        for (pollfd& each : descriptors) {
            each.revents = 0;
        }
    }
}

}  // namespace tsyn
