#include "tools/virtual_i210/Timers.h"

#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/RealFunctions.h"

namespace virtual_i210 {

namespace {

struct Timer {
    int fd = -1;
    clockid_t clock = CLOCK_MONOTONIC;
    std::uint64_t nextNs = kNever;
    std::uint64_t periodNs = 0;
};

std::array<Timer, 64> timers;

Timer* timerOf(int fd) {
    const auto found = std::find_if(timers.begin(), timers.end(),
                                    [=](const Timer& timer) { return timer.fd == fd; });
    return fd < 0 || found == timers.end() ? nullptr : &*found;
}

/** What has expired was of the setting before. */
void drain(int fd) {
    std::uint64_t count = 0;
    const int flags = real().fcntl(fd, F_GETFL);
    real().fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const int savedErrno = errno;
    syscall(SYS_read, fd, &count, sizeof count);
    errno = savedErrno;
    real().fcntl(fd, F_SETFL, flags);
}

void describe(const Timer& timer, itimerspec& left) {
    const std::uint64_t now = rawNowNs();
    const std::uint64_t ns = timer.nextNs == kNever ? 0
                             : timer.nextNs > now   ? timer.nextNs - now
                                                    : 1;
    left.it_value = toTimespec(static_cast<std::int64_t>(ns));
    left.it_interval = toTimespec(static_cast<std::int64_t>(timer.periodNs));
}

}  // namespace

int createTimer(clockid_t clock, int flags) {
    if (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC && clock != CLOCK_BOOTTIME) {
        return failWith(EINVAL);
    }
    Timer* const unused = [] {
        const auto found = std::find_if(timers.begin(), timers.end(),
                                        [](const Timer& timer) { return timer.fd < 0; });
        return found == timers.end() ? nullptr : &*found;
    }();
    if (unused == nullptr) {
        return failWith(EMFILE);
    }
    const int fd = eventfd(0, ((flags & TFD_CLOEXEC) != 0 ? EFD_CLOEXEC : 0) |
                                  ((flags & TFD_NONBLOCK) != 0 ? EFD_NONBLOCK : 0));
    if (fd >= 0) {
        *unused = Timer{fd, clock, kNever, 0};
    }
    return fd;
}

bool isTimer(int fd) {
    return timerOf(fd) != nullptr;
}

int setTimer(int fd, int flags, const itimerspec& wished, itimerspec* before) {
    Timer& timer = *timerOf(fd);
    fireTimers();
    if (before != nullptr) {
        describe(timer, *before);
    }
    drain(fd);
    timer.periodNs = static_cast<std::uint64_t>(limitedNs(wished.it_interval));
    if (wished.it_value.tv_sec == 0 && wished.it_value.tv_nsec == 0) {
        timer.nextNs = kNever;
    } else if ((flags & TFD_TIMER_ABSTIME) != 0) {
        timer.nextNs = rawInstantOf(timer.clock, wished.it_value);
    } else {
        timer.nextNs = endOf(&wished.it_value);
    }
    return 0;
}

int timeLeft(int fd, itimerspec& left) {
    fireTimers();
    describe(*timerOf(fd), left);
    return 0;
}

void closeTimer(int fd) {
    if (Timer* timer = timerOf(fd)) {
        *timer = Timer{};
    }
}

void fireTimers() {
    const std::uint64_t now = rawNowNs();
    for (Timer& timer : timers) {
        if (timer.fd < 0 || timer.nextNs > now) {
            continue;
        }
        std::uint64_t expirations = 1;
        if (timer.periodNs > 0) {
            expirations += (now - timer.nextNs) / timer.periodNs;
            timer.nextNs += expirations * timer.periodNs;
        } else {
            timer.nextNs = kNever;
        }
        syscall(SYS_write, timer.fd, &expirations, sizeof expirations);
    }
}

std::uint64_t nextTimerNs() {
    std::uint64_t next = kNever;
    for (const Timer& timer : timers) {
        next = timer.fd < 0 ? next : std::min(next, timer.nextNs);
    }
    return next;
}

}  // namespace virtual_i210
