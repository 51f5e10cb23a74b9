#include "tools/virtual_i210/simulated/Signals.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace virtual_i210 {

namespace {

/** Real time that a process is given to meet a signal. */
constexpr unsigned kPatienceMs = 500;

/** One of the sets in /proc, or 0 when the process is gone. */
std::uint64_t signalSet(pid_t pid, pid_t tid, const char* name) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/task/%d/status", static_cast<int>(pid),
                  static_cast<int>(tid));
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC));
    if (fd < 0) {
        return 0;
    }
    char text[4096] = {};
    syscall(SYS_read, fd, text, sizeof text - 1);
    syscall(SYS_close, fd);
    const char* line = std::strstr(text, name);
    return line == nullptr ? 0 : std::strtoull(line + std::strlen(name), nullptr, 16);
}

/** The thread that the kernel lets run the handler: the first one if it can. */
std::uint32_t handlingThread(const Conductor& conductor, pid_t pid, std::uint64_t bit) {
    std::uint32_t chosen = kMaxThreads;
    for (std::uint32_t i = 0; i < conductor.slotEnd(); ++i) {
        const ThreadSlot& slot = conductor.slot(i);
        const bool candidate = slot.state != ThreadState::kFree && slot.pid == pid &&
                               slot.tid != 0 && (chosen == kMaxThreads || slot.tid == pid);
        if (candidate && (signalSet(pid, slot.tid, "SigBlk:") & bit) == 0) {
            chosen = i;
        }
    }
    return chosen;
}

bool endsProcess(int number) {
    return number != 0 && number != SIGCHLD && number != SIGCONT && number != SIGURG &&
           number != SIGWINCH && number != SIGSTOP && number != SIGTSTP && number != SIGTTIN &&
           number != SIGTTOU;
}

template <typename Condition>
void awaitReally(Condition condition) {
    for (unsigned i = 0; i < 10 * kPatienceMs && !condition(); ++i) {
        const timespec pause = {0, 100'000};
        syscall(SYS_nanosleep, &pause, nullptr);
    }
}

}  // namespace

int signalProcess(Conductor& conductor, pid_t pid, int number, int (*send)(pid_t, int)) {
    const std::uint64_t bit = number > 0 ? std::uint64_t{1} << (number - 1) : 0;
    const bool handled = (signalSet(pid, pid, "SigCgt:") & bit) != 0;
    const bool ignored = (signalSet(pid, pid, "SigIgn:") & bit) != 0;
    const std::uint32_t thread = handlingThread(conductor, pid, bit);
    const std::uint32_t met = thread == kMaxThreads ? 0 : conductor.slot(thread).handlersMet.load();
    const int result = send(pid, number);
    if (result != 0 || number == 0) {
        return result;
    }
    if (number == SIGSTOP || number == SIGCONT) {
        number == SIGSTOP ? conductor.stop(pid) : conductor.resume(pid);
    } else if (thread != kMaxThreads && handled) {
        awaitReally([&] { return conductor.slot(thread).handlersMet.load() != met; });
        conductor.signalled(pid, thread);
    } else if (thread != kMaxThreads && !ignored && endsProcess(number)) {
        awaitReally([&] { return isDead(pid); });
        conductor.leaveProcess(pid);
    } else {
        conductor.signalled(pid, kMaxThreads);
    }
    return 0;
}

}  // namespace virtual_i210
