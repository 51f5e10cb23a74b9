#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "tools/virtual_i210/Alarm.h"
#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"

/** The alarm of a process. */

namespace virtual_i210 {

namespace {

std::uint64_t dueNs = kNever;
std::uint64_t periodNs = 0;

std::uint64_t nsOf(const timeval& time) {
    return static_cast<std::uint64_t>(
        limitedNs({time.tv_sec, static_cast<long>(1000 * time.tv_usec)}));
}

timeval timevalOf(std::uint64_t ns) {
    const timespec time = toTimespec(static_cast<std::int64_t>(ns));
    return {time.tv_sec, static_cast<suseconds_t>(time.tv_nsec / 1000)};
}

bool isHandled(int number) {
    struct sigaction action {};
    sigset_t blocked;
    sigaction(number, nullptr, &action);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN &&
           sigismember(&blocked, number) == 0;
}

}  // namespace

std::uint64_t alarmNs() {
    return dueNs;
}

bool ringIfDue() {
    if (rawNowNs() < dueNs) {
        return false;
    }
    dueNs = periodNs == 0 ? kNever : dueNs + periodNs;
    const bool handled = isHandled(SIGALRM);
    realWaits().kill(getpid(), SIGALRM);
    return handled;
}

void setAlarm(const itimerval& wished) {
    const std::uint64_t firstNs = nsOf(wished.it_value);
    dueNs = firstNs == 0 ? kNever : rawNowNs() + firstNs;
    periodNs = nsOf(wished.it_interval);
}

itimerval alarmLeft() {
    const std::uint64_t now = rawNowNs();
    const std::uint64_t leftNs = dueNs == kNever ? 0 : dueNs > now ? dueNs - now : 1000;
    return {timevalOf(periodNs), timevalOf(leftNs)};
}

void forgetAlarm() {
    dueNs = kNever;
}

}  // namespace virtual_i210

using virtual_i210::conducting;
using virtual_i210::realWaits;

VIRTUAL_I210_EXPORT int setitimer(__itimer_which_t which, const itimerval* wished,
                                  itimerval* before) noexcept {
    if (which != ITIMER_REAL || conducting() == nullptr) {
        return realWaits().setitimer(which, wished, before);
    }
    virtual_i210::chargeCall();
    constexpr long kUsPerSecond = 1'000'000;
    if (wished != nullptr && (wished->it_value.tv_usec < 0 || wished->it_value.tv_sec < 0 ||
                              wished->it_value.tv_usec >= kUsPerSecond)) {
        return virtual_i210::failWith(EINVAL);
    }
    if (before != nullptr) {
        *before = virtual_i210::alarmLeft();
    }
    virtual_i210::setAlarm(wished == nullptr ? itimerval{} : *wished);
    return 0;
}

VIRTUAL_I210_EXPORT int getitimer(__itimer_which_t which, itimerval* left) noexcept {
    if (which != ITIMER_REAL || conducting() == nullptr) {
        return realWaits().getitimer(which, left);
    }
    *left = virtual_i210::alarmLeft();
    return 0;
}

VIRTUAL_I210_EXPORT unsigned alarm(unsigned seconds) noexcept {
    if (conducting() == nullptr) {
        return realWaits().alarm(seconds);
    }
    itimerval before{};
    const itimerval wished = {{0, 0}, {static_cast<time_t>(seconds), 0}};
    setitimer(ITIMER_REAL, &wished, &before);
    const bool more = before.it_value.tv_usec > 0;
    return static_cast<unsigned>(before.it_value.tv_sec) + (more ? 1u : 0u);
}
