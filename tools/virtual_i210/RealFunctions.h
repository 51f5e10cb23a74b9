#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timex.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace virtual_i210 {

/** What the program would have called without this library. */
struct RealFunctions {
    decltype(&::openat) openat;
    decltype(&::openat64) openat64;
    decltype(&::close) close;
    decltype(&::dup) dup;
    decltype(&::dup2) dup2;
    decltype(&::dup3) dup3;
    decltype(&::fcntl) fcntl;
    decltype(&::fcntl64) fcntl64;
    int (*closeRange)(unsigned, unsigned, int) noexcept;
    decltype(&::clock_gettime) clockGettime;
    decltype(&::clock_settime) clockSettime;
    decltype(&::clock_getres) clockGetres;
    decltype(&::clock_adjtime) clockAdjtime;
    decltype(&::ioctl) ioctl;
    decltype(&::socket) socket;
    decltype(&::setsockopt) setsockopt;
    decltype(&::getsockopt) getsockopt;
    decltype(&::send) send;
    decltype(&::sendto) sendto;
    decltype(&::sendmsg) sendmsg;
    decltype(&::write) write;
    decltype(&::recv) recv;
    decltype(&::recvfrom) recvfrom;
    decltype(&::recvmsg) recvmsg;
    decltype(&::recvmmsg) recvmmsg;
    decltype(&::read) read;
};

/** The definition that the program would have met without this library. */
template <typename Function>
void findReal(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/** Found at first use: other libraries' constructors may call before ours runs. */
const RealFunctions& real();

/** Ends a call as a system call that failed. */
inline int failWith(int errorNumber) {
    errno = errorNumber;
    return -1;
}

}  // namespace virtual_i210

#define VIRTUAL_I210_EXPORT extern "C" __attribute__((visibility("default")))
