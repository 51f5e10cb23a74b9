#include "tools/virtual_i210/simulated/Signals.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace virtual_i210 {

namespace {

/** Real time that a process is given to meet a signal. */
constexpr unsigned kPatienceMs = 500;

/** A file that /proc has of a thread, cut at 4 KiB; empty when the thread is gone. */
std::string factsOf(pid_t pid, pid_t tid, const char* file) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/task/%d/%s", static_cast<int>(pid),
                  static_cast<int>(tid), file);
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC));
    if (fd < 0) {
        return {};
    }
    char text[4096] = {};
    syscall(SYS_read, fd, text, sizeof text - 1);
    syscall(SYS_close, fd);
    return text;
}

std::uint64_t signalSet(pid_t pid, pid_t tid, const char* name) {
    const std::string text = factsOf(pid, tid, "status");
    const std::size_t line = text.find(name);
    return line == std::string::npos
               ? 0
               : std::strtoull(text.c_str() + line + std::strlen(name), nullptr, 16);
}

/** Also true for a thread that is gone. */
bool isAsleep(pid_t pid, pid_t tid) {
    const std::string text = factsOf(pid, tid, "stat");
    const std::size_t afterName = text.rfind(") ");
    return afterName == std::string::npos || text.compare(afterName, 3, ") R") != 0;
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

/** A thread outside the run meets the signal in the call that it is in. */
void awaitHandler(const Conductor& conductor, std::uint32_t thread, std::uint32_t met) {
    const bool outside = conductor.isOutside(thread);
    awaitReally([&] {
        return conductor.slot(thread).handlersMet.load() != met ||
               (outside && !conductor.isOutside(thread));
    });
}

/** Whoever has just given its turn away is interrupted only once it waits for the next one. */
std::uint32_t handlersMetAsleep(const Conductor& conductor, std::uint32_t thread) {
    if (thread == kMaxThreads) {
        return 0;
    }
    const ThreadSlot& slot = conductor.slot(thread);
    awaitReally([&] { return isAsleep(slot.pid, slot.tid); });
    return slot.handlersMet.load();
}

std::uint64_t bitOf(int number) {
    return number > 0 ? std::uint64_t{1} << (number - 1) : 0;
}

}  // namespace

int signalProcess(Conductor& conductor, pid_t pid, int number, int (*send)(pid_t, int)) {
    const std::uint64_t bit = bitOf(number);
    const bool handled = (signalSet(pid, pid, "SigCgt:") & bit) != 0;
    const bool ignored = (signalSet(pid, pid, "SigIgn:") & bit) != 0;
    const std::uint32_t thread = handlingThread(conductor, pid, bit);
    const std::uint32_t met = handlersMetAsleep(conductor, thread);
    const int result = send(pid, number);
    if (result != 0 || number == 0) {
        return result;
    }
    if (number == SIGSTOP || number == SIGCONT) {
        number == SIGSTOP ? conductor.stop(pid) : conductor.resume(pid);
    } else if (thread != kMaxThreads && handled) {
        awaitHandler(conductor, thread, met);
        conductor.signalled(pid, thread, number);
    } else if (thread != kMaxThreads && !ignored && endsProcess(number)) {
        awaitReally([&] { return isDead(pid); });
        conductor.leaveProcess(pid);
    } else {
        conductor.signalled(pid, kMaxThreads, number);
    }
    return 0;
}

int signalThread(Conductor& conductor, pid_t pid, std::uint64_t handle, int number,
                 const std::function<int()>& send) {
    const std::uint64_t bit = bitOf(number);
    std::uint32_t thread = 0;
    while (thread < conductor.slotEnd() &&
           (conductor.slot(thread).pid != pid || conductor.slot(thread).handle != handle)) {
        ++thread;
    }
    const bool known = thread < conductor.slotEnd() && conductor.slot(thread).tid != 0;
    const bool handled = known && (signalSet(pid, pid, "SigCgt:") & bit) != 0 &&
                         (signalSet(pid, conductor.slot(thread).tid, "SigBlk:") & bit) == 0;
    const std::uint32_t met = handlersMetAsleep(conductor, known ? thread : kMaxThreads);
    const int result = send();
    if (result == 0 && handled) {
        awaitHandler(conductor, thread, met);
    }
    conductor.signalled(pid, handled ? thread : kMaxThreads, number);
    return result;
}

}  // namespace virtual_i210
