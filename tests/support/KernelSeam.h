#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <csignal>
#include <ctime>
#include <functional>
#include <optional>

/** While it lives, a test answers the system calls that it names in place of the kernel. A hook
 *  that returns nothing, or is not set, lets the call through. Hooks set errno themselves; they
 *  are set before threads of the library run. */
struct KernelSeam {
    KernelSeam();
    ~KernelSeam();
    KernelSeam(const KernelSeam&) = delete;
    KernelSeam& operator=(const KernelSeam&) = delete;

    std::function<std::optional<int>(clockid_t, timespec*)> clockGettime;
    std::function<std::optional<int>(clockid_t, const timespec*)> clockSettime;
    std::function<std::optional<int>(int, unsigned long, void*)> ioctl;
    std::function<std::optional<int>(const char*)> open;
    std::function<std::optional<int>(int, int, int)> socket;
    std::function<std::optional<int>(int, const sockaddr*)> bind;
    std::function<std::optional<int>(int, int, int)> setsockopt;
    std::function<std::optional<int>(int, int, int)> getsockopt;
    std::function<std::optional<ssize_t>(int, const void*, std::size_t, int, const sockaddr*)>
        sendto;
    std::function<std::optional<ssize_t>(int, msghdr*, int)> recvmsg;
    std::function<std::optional<int>(pollfd*, int)> poll;
    std::function<std::optional<int>()> pthreadSigmask;
    std::function<std::optional<int>()> schedYield;
    std::function<std::optional<int>(useconds_t)> usleep;
    std::function<std::optional<int>()> pthreadCreate;  ///< answers with an error, not with errno
    std::function<std::optional<unsigned>(const char*)> ifNametoindex;

    /** CLOCK_REALTIME stands still at these nanoseconds. */
    void fixRealtime(long long ns);

    /** Every PHC stands still at these nanoseconds. */
    void fixPhc(long long ns);

    /** An answer that fails with an error. */
    static int refuse(int error);

private:
    std::function<std::optional<int>(clockid_t, timespec*)> withFixedClock(bool phc, long long ns);
};
