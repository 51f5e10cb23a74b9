#include <sys/resource.h>

#include <cstring>

#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/State.h"

/** Processes: made, replaced, waited for, ended. A parent waits for a child outside the run, since
 *  the child may be no part of it. */

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
    if (preloadsCard(environment)) {
        virtual_i210::awaitNewImage();
    } else {
        virtual_i210::leaveForImage();
    }
    return replace();
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
        virtual_i210::beginAt(slot);
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

VIRTUAL_I210_EXPORT void _exit(int status) {
    virtual_i210::endProcess();
    realWaits().exitNow(status);
    __builtin_unreachable();
}

VIRTUAL_I210_EXPORT pid_t waitpid(pid_t pid, int* status, int options) {
    const virtual_i210::Outside outside;
    return realWaits().waitpid(pid, status, options);
}

VIRTUAL_I210_EXPORT pid_t wait(int* status) {
    return waitpid(-1, status, 0);
}

VIRTUAL_I210_EXPORT pid_t wait4(pid_t pid, int* status, int options, rusage* usage) {
    const virtual_i210::Outside outside;
    return realWaits().wait4(pid, status, options, usage);
}

VIRTUAL_I210_EXPORT int waitid(idtype_t kind, id_t id, siginfo_t* info, int options) {
    const virtual_i210::Outside outside;
    return realWaits().waitid(kind, id, info, options);
}
