#include <sys/resource.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <vector>

#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/State.h"

/** Processes: made, replaced, waited for, ended. A child that is no part of the run is waited for
 *  outside it. */

namespace {

using virtual_i210::conducting;
using virtual_i210::Conductor;
using virtual_i210::realWaits;

/** Whether a program with this environment will be part of the run. */
bool preloadsCard(char* const environment[]) {
    bool preloads = false;
    bool configured = false;
    for (char* const* entry = environment; entry != nullptr && *entry != nullptr; ++entry) {
        preloads = preloads || (std::strncmp(*entry, "LD_PRELOAD=", 11) == 0 &&
                                std::strstr(*entry, "libvirtual_i210") != nullptr);
        configured = configured || std::strncmp(*entry, "VIRTUAL_I210=", 13) == 0;
    }
    return preloads && configured;
}

/** Calls that replace the process image: only a failure returns. */
template <typename Replace>
int replaceImage(char* const environment[], Replace replace) {
    if (conducting() == nullptr) {
        return replace();
    }
    virtual_i210::chargeCall();
    if (preloadsCard(environment)) {
        virtual_i210::awaitNewImage();
    } else {
        virtual_i210::leaveForImage();
    }
    const int result = replace();
    const int reason = errno;
    virtual_i210::keepImage();
    errno = reason;
    return result;
}

/** The arguments of a call that lists them, up to its null. */
std::vector<char*> listOf(const char* first, va_list arguments) {
    std::vector<char*> list = {const_cast<char*>(first)};
    while (list.back() != nullptr) {
        list.push_back(va_arg(arguments, char*));
    }
    return list;
}

/** Waits for the end of a child, in the run when the child is part of it. `call` makes the real
 *  call with these options and returns 0 when there is nothing yet. */
template <typename Call>
int waitForChild(pid_t pid, int options, Call call) {
    // A death that the run was not told of is noticed with this delay.
    constexpr std::uint64_t kOutsideNs = 1'000'000'000;
    Conductor* conductor = conducting();
    if (conductor == nullptr) {
        return call(options);
    }
    virtual_i210::chargeCall();
    for (;;) {
        const int result = call(options | WNOHANG);
        if (result != 0) {
            return result;
        }
        if (pid > 0 && conductor->hasEnded(pid)) {
            return call(options & ~WNOHANG);
        }
        if ((options & WNOHANG) != 0) {
            return 0;
        }
        if (pid <= 0 || !conductor->hasThreads(pid)) {
            const virtual_i210::Outside outside;
            return call(options);
        }
        const std::uint32_t woken = virtual_i210::waitFor({virtual_i210::WaitKind::kProcess,
                                                           static_cast<std::uint64_t>(pid),
                                                           virtual_i210::rawNowNs() + kOutsideNs});
        if ((woken & virtual_i210::kWokenBySignal) != 0 && !virtual_i210::signalRestartsCall()) {
            return virtual_i210::failWith(EINTR);
        }
    }
}

__attribute__((destructor)) void endProcessAtExit() {
    virtual_i210::endProcess();
}

}  // namespace

VIRTUAL_I210_EXPORT pid_t fork() noexcept {
    Conductor* conductor = conducting();
    if (conductor == nullptr) {
        return realWaits().fork();
    }
    virtual_i210::chargeCall();
    const std::uint32_t slot = conductor->reserve(0, false);
    const pid_t pid = realWaits().fork();
    if (pid == 0) {
        conductor->setProcess(slot, getpid());
        virtual_i210::beginProcessAt(slot);
    } else if (pid > 0) {
        conductor->setProcess(slot, pid);
    } else {
        conductor->leave(slot);
    }
    return pid;
}

VIRTUAL_I210_EXPORT int execve(const char* path, char* const arguments[],
                               char* const environment[]) noexcept {
    return replaceImage(environment,
                        [=] { return realWaits().execve(path, arguments, environment); });
}

VIRTUAL_I210_EXPORT int execv(const char* path, char* const arguments[]) noexcept {
    return execve(path, arguments, environ);
}

VIRTUAL_I210_EXPORT int execvpe(const char* file, char* const arguments[],
                                char* const environment[]) noexcept {
    return replaceImage(environment,
                        [=] { return realWaits().execvpe(file, arguments, environment); });
}

VIRTUAL_I210_EXPORT int execvp(const char* file, char* const arguments[]) noexcept {
    return execvpe(file, arguments, environ);
}

VIRTUAL_I210_EXPORT int execl(const char* path, const char* first, ...) noexcept {
    va_list arguments;
    va_start(arguments, first);
    const std::vector<char*> list = listOf(first, arguments);
    va_end(arguments);
    return execve(path, list.data(), environ);
}

VIRTUAL_I210_EXPORT int execlp(const char* file, const char* first, ...) noexcept {
    va_list arguments;
    va_start(arguments, first);
    const std::vector<char*> list = listOf(first, arguments);
    va_end(arguments);
    return execvpe(file, list.data(), environ);
}

VIRTUAL_I210_EXPORT int execle(const char* path, const char* first, ...) noexcept {
    va_list arguments;
    va_start(arguments, first);
    const std::vector<char*> list = listOf(first, arguments);
    char* const* environment = va_arg(arguments, char* const*);
    va_end(arguments);
    return execve(path, list.data(), environment);
}

VIRTUAL_I210_EXPORT void _exit(int status) {
    virtual_i210::endProcess();
    realWaits().exitNow(status);
    __builtin_unreachable();
}

VIRTUAL_I210_EXPORT void _Exit(int status) noexcept {
    _exit(status);
}

VIRTUAL_I210_EXPORT pid_t waitpid(pid_t pid, int* status, int options) {
    return waitForChild(pid, options,
                        [=](int how) { return realWaits().waitpid(pid, status, how); });
}

VIRTUAL_I210_EXPORT pid_t wait(int* status) {
    return waitpid(-1, status, 0);
}

VIRTUAL_I210_EXPORT pid_t wait4(pid_t pid, int* status, int options, rusage* usage) {
    return waitForChild(pid, options,
                        [=](int how) { return realWaits().wait4(pid, status, how, usage); });
}

/** Success does not tell whether a child was there; the information does. */
VIRTUAL_I210_EXPORT int waitid(idtype_t kind, id_t id, siginfo_t* info, int options) {
    siginfo_t own{};
    siginfo_t* const told = info != nullptr ? info : &own;
    const int result =
        waitForChild(kind == P_PID ? static_cast<pid_t>(id) : -1, options, [=](int how) {
            told->si_pid = 0;
            const int done = realWaits().waitid(kind, id, told, how);
            return done == 0 && told->si_pid != 0 ? 1 : done;
        });
    return result > 0 ? 0 : result;
}
