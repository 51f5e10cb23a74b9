#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/virtual_i210/simulated/ConductorLock.h"

/** What becomes of a run whose programs die, or never wait. */

namespace virtual_i210 {

namespace {

/** So many looks without any progress, and the turn is taken away. */
constexpr unsigned kPatience = 20;

/** What the last looks of this thread saw. */
struct Watched {
    std::uint64_t turns = 0;
    std::uint64_t nowNs = 0;
    unsigned looks = 0;
};

thread_local Watched watched;

std::atomic<pid_t> ownPid{0};

}  // namespace

pid_t processId() {
    if (ownPid.load(std::memory_order_relaxed) == 0) {
        pthread_atfork(nullptr, nullptr, [] { ownPid.store(getpid()); });
        ownPid.store(getpid());
    }
    return ownPid.load(std::memory_order_relaxed);
}

bool isDead(pid_t pid) {
    if (pid == 0) {
        return false;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY));
    if (fd < 0) {
        return true;
    }
    char text[256] = {};
    syscall(SYS_read, fd, text, sizeof text - 1);
    syscall(SYS_close, fd);
    const char* afterName = std::strrchr(text, ')');
    if (afterName == nullptr || afterName[2] == 'X') {
        return true;
    }
    // A process lives on when only its first thread has ended.
    constexpr unsigned kFieldsToThreads = 18;
    const char* threads = afterName;
    for (unsigned i = 0; i < kFieldsToThreads && threads != nullptr; ++i) {
        threads = std::strchr(threads + 1, ' ');
    }
    return afterName[2] == 'Z' && (threads == nullptr || std::strtol(threads, nullptr, 10) <= 1);
}

/** By a thread that waits for its turn: signals may come from outside the run, which tells nobody
 *  of them. */
void Conductor::noticeSignals(std::uint32_t number, bool handlerRan) {
    sigset_t pending;
    sigpending(&pending);
    const bool somePending = sigisemptyset(&pending) == 0;
    if (!somePending && !handlerRan) {
        return;
    }
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        for (std::uint32_t i = 0; i < slotEnd_; ++i) {
            const ThreadSlot& slot = slots_[i];
            if (slot.state != ThreadState::kWaiting || slot.pid != slots_[number].pid) {
                continue;
            }
            if (somePending && slot.waitKind == WaitKind::kSignal) {
                wakeAt(i, nowNs(), kWokenByNotice);
            } else if (handlerRan && i == number && slot.waitKind != WaitKind::kTurn) {
                wakeAt(i, nowNs(), kWokenBySignal);
            }
        }
        if (running_.load() == 0 && nextDueNs_.load() != kNever) {
            next = passTurn();
        }
    }
    hand(next);
}

/** By a thread that waits for its turn: whoever has it may have died or may never wait. */
void Conductor::watch() {
    const std::uint64_t turns = turns_.load();
    const std::uint64_t now = nowNs();
    const std::uint32_t running = running_.load();
    if (watched.turns != turns || watched.nowNs != now || running == 0) {
        watched = {turns, now, 0};
        return;
    }
    ++watched.looks;
    const pid_t pid = slots_[running - 1].pid;
    const bool dead = isDead(pid);
    if (!dead && watched.looks < kPatience) {
        return;
    }
    watched.looks = 0;
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        if (turns_.load() != turns || running_.load() != running) {
            return;
        }
        if (dead) {
            freeProcess(pid);
        } else {
            slots_[running - 1].state = ThreadState::kOutside;
        }
        next = passTurn();
    }
    hand(next);
}

}  // namespace virtual_i210
