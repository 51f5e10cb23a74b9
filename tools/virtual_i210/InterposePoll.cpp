#include <cerrno>

#include "tools/virtual_i210/Polling.h"
#include "tools/virtual_i210/RealWaits.h"

/** Calls that wait for descriptors, and the timers among these. */

namespace {

using virtual_i210::conducting;
using virtual_i210::Interest;
using virtual_i210::interestIn;
using virtual_i210::kEveryCard;
using virtual_i210::kNever;
using virtual_i210::realWaits;

constexpr timespec kNoTime = {0, 0};

/** Left for the kernel to refuse. */
bool isWrong(const timespec* duration) {
    return duration != nullptr && !virtual_i210::isTime(*duration);
}

Interest interestIn(const pollfd* entries, nfds_t count) {
    Interest interest;
    for (nfds_t i = 0; i < count; ++i) {
        interest.add(interestIn(entries[i].fd));
    }
    return interest;
}

/** Takes the readiness for frames that have not come through the cable back. */
int hideEarlyFrames(pollfd* entries, nfds_t count, int ready, std::uint64_t& lookAgainNs) {
    for (nfds_t i = 0; i < count && ready > 0; ++i) {
        const std::uint64_t visibleNs =
            (entries[i].revents & POLLIN) != 0 ? virtual_i210::frameOnItsWayNs(entries[i].fd) : 0;
        if (visibleNs != 0) {
            lookAgainNs = std::min(lookAgainNs, visibleNs);
            entries[i].revents = static_cast<short>(entries[i].revents & ~(POLLIN | POLLRDNORM));
            ready -= entries[i].revents == 0 ? 1 : 0;
        }
    }
    return ready;
}

int pollUntil(pollfd* entries, nfds_t count, std::uint64_t endNs, const sigset_t* mask) {
    virtual_i210::chargeCall();
    return virtual_i210::waitForDescriptors(
        interestIn(entries, count), endNs,
        [&](std::uint64_t& lookAgainNs) {
            const int ready = realWaits().ppoll(entries, count, &kNoTime, mask);
            return ready <= 0 ? ready : hideEarlyFrames(entries, count, ready, lookAgainNs);
        },
        mask);
}

/** The sets of a select call, which the kernel overwrites. */
struct Sets {
    Sets(fd_set* readable, fd_set* writable, fd_set* exceptional)
        : given{readable, writable, exceptional} {
        for (int i = 0; i < 3; ++i) {
            wished[i] = given[i] != nullptr ? *given[i] : fd_set{};
        }
    }
    void restore() {
        for (int i = 0; i < 3; ++i) {
            if (given[i] != nullptr) {
                *given[i] = wished[i];
            }
        }
    }
    /** As hideEarlyFrames. */
    int hideEarly(int end, int ready, std::uint64_t& lookAgainNs) const {
        for (int fd = 0; given[0] != nullptr && fd < end; ++fd) {
            const std::uint64_t visibleNs =
                FD_ISSET(fd, given[0]) ? virtual_i210::frameOnItsWayNs(fd) : 0;
            if (visibleNs != 0) {
                lookAgainNs = std::min(lookAgainNs, visibleNs);
                FD_CLR(fd, given[0]);
                --ready;
            }
        }
        return ready;
    }
    Interest interest(int end) const {
        Interest all;
        for (int fd = 0; fd < end; ++fd) {
            if (FD_ISSET(fd, &wished[0]) || FD_ISSET(fd, &wished[1]) || FD_ISSET(fd, &wished[2])) {
                all.add(interestIn(fd));
            }
        }
        return all;
    }

    fd_set* given[3];
    fd_set wished[3];
};

int selectUntil(int end, Sets sets, std::uint64_t endNs, const sigset_t* mask) {
    virtual_i210::chargeCall();
    return virtual_i210::waitForDescriptors(
        sets.interest(end), endNs,
        [&](std::uint64_t& lookAgainNs) {
            sets.restore();
            const int ready = realWaits().pselect(end, sets.given[0], sets.given[1], sets.given[2],
                                                  &kNoTime, mask);
            return ready <= 0 ? ready : sets.hideEarly(end, ready, lookAgainNs);
        },
        mask);
}

int epollUntil(int fd, epoll_event* events, int most, int milliseconds, const sigset_t* mask) {
    virtual_i210::chargeCall();
    const Interest anything = {kEveryCard, true};
    return virtual_i210::waitForDescriptors(
        anything, virtual_i210::endOfMilliseconds(milliseconds),
        [=](std::uint64_t&) { return realWaits().epollPwait(fd, events, most, 0, mask); }, mask);
}

}  // namespace

VIRTUAL_I210_EXPORT int poll(pollfd* entries, nfds_t count, int milliseconds) {
    return conducting() == nullptr
               ? realWaits().poll(entries, count, milliseconds)
               : pollUntil(entries, count, virtual_i210::endOfMilliseconds(milliseconds), nullptr);
}

VIRTUAL_I210_EXPORT int ppoll(pollfd* entries, nfds_t count, const timespec* duration,
                              const sigset_t* mask) {
    return isWrong(duration) || conducting() == nullptr
               ? realWaits().ppoll(entries, count, duration, mask)
               : pollUntil(entries, count, virtual_i210::endOf(duration), mask);
}

/** What programs call that were compiled with checks on the size of the array. */
VIRTUAL_I210_EXPORT int __poll_chk(pollfd* entries, nfds_t count, int milliseconds,
                                   std::size_t /*size*/) {
    return poll(entries, count, milliseconds);
}

VIRTUAL_I210_EXPORT int __ppoll_chk(pollfd* entries, nfds_t count, const timespec* duration,
                                    const sigset_t* mask, std::size_t /*size*/) {
    return ppoll(entries, count, duration, mask);
}

VIRTUAL_I210_EXPORT int select(int end, fd_set* readable, fd_set* writable, fd_set* exceptional,
                               timeval* duration) {
    const bool wrong = duration != nullptr && (duration->tv_sec < 0 || duration->tv_usec < 0);
    if (wrong || conducting() == nullptr) {
        return realWaits().select(end, readable, writable, exceptional, duration);
    }
    std::uint64_t endNs = kNever;
    if (duration != nullptr) {
        constexpr long kUsPerSecond = 1'000'000;
        const timespec time = {duration->tv_sec, 1000 * (duration->tv_usec % kUsPerSecond)};
        endNs = virtual_i210::endOf(&time) +
                virtual_i210::kNsPerSecond *
                    static_cast<std::uint64_t>(duration->tv_usec / kUsPerSecond);
    }
    return selectUntil(end, {readable, writable, exceptional}, endNs, nullptr);
}

VIRTUAL_I210_EXPORT int pselect(int end, fd_set* readable, fd_set* writable, fd_set* exceptional,
                                const timespec* duration, const sigset_t* mask) {
    return isWrong(duration) || conducting() == nullptr
               ? realWaits().pselect(end, readable, writable, exceptional, duration, mask)
               : selectUntil(end, {readable, writable, exceptional}, virtual_i210::endOf(duration),
                             mask);
}

VIRTUAL_I210_EXPORT int epoll_wait(int fd, epoll_event* events, int most, int milliseconds) {
    return conducting() == nullptr ? realWaits().epollWait(fd, events, most, milliseconds)
                                   : epollUntil(fd, events, most, milliseconds, nullptr);
}

VIRTUAL_I210_EXPORT int epoll_pwait(int fd, epoll_event* events, int most, int milliseconds,
                                    const sigset_t* mask) {
    return conducting() == nullptr ? realWaits().epollPwait(fd, events, most, milliseconds, mask)
                                   : epollUntil(fd, events, most, milliseconds, mask);
}

VIRTUAL_I210_EXPORT int timerfd_create(clockid_t clock, int flags) noexcept {
    const bool wrong = (flags & ~(TFD_CLOEXEC | TFD_NONBLOCK)) != 0;
    return wrong || conducting() == nullptr ? realWaits().timerfdCreate(clock, flags)
                                            : virtual_i210::createTimer(clock, flags);
}

VIRTUAL_I210_EXPORT int timerfd_settime(int fd, int flags, const itimerspec* wished,
                                        itimerspec* before) noexcept {
    if (!virtual_i210::isTimer(fd)) {
        return realWaits().timerfdSettime(fd, flags, wished, before);
    }
    virtual_i210::chargeCall();
    if (wished == nullptr) {
        return virtual_i210::failWith(EFAULT);
    }
    if (!virtual_i210::isTime(wished->it_value) || !virtual_i210::isTime(wished->it_interval)) {
        return virtual_i210::failWith(EINVAL);
    }
    return virtual_i210::setTimer(fd, flags, *wished, before);
}

VIRTUAL_I210_EXPORT int timerfd_gettime(int fd, itimerspec* left) noexcept {
    return virtual_i210::isTimer(fd) ? virtual_i210::timeLeft(fd, *left)
                                     : realWaits().timerfdGettime(fd, left);
}
