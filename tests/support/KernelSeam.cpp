#include "tests/support/KernelSeam.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <net/if.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

// The test program's own definitions come before those of every library in symbol look-up; they
// pass on to the next ones, be it the virtual card's or the C library's.

namespace {

std::atomic<KernelSeam*> standing{nullptr};

constexpr long long kSecond = 1000000000;

timespec timespecOf(long long ns) {
    const long long rest = (ns % kSecond + kSecond) % kSecond;
    timespec time{};
    time.tv_sec = static_cast<time_t>((ns - rest) / kSecond);
    time.tv_nsec = static_cast<long>(rest);
    return time;
}

/** The definition after this program's. */
template <typename Function>
Function next(Function /*here*/, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/** The hook's answer, if there is a hook and it answers. */
template <typename Hook, typename... Arguments>
auto answer(Hook KernelSeam::*hook, Arguments... arguments)
    -> decltype((standing.load()->*hook)(arguments...)) {
    const KernelSeam* const seam = standing.load(std::memory_order_acquire);
    if (seam == nullptr || !(seam->*hook)) {
        return std::nullopt;
    }
    return (seam->*hook)(arguments...);
}

}  // namespace

KernelSeam::KernelSeam() {
    standing.store(this, std::memory_order_release);
}

KernelSeam::~KernelSeam() {
    standing.store(nullptr, std::memory_order_release);
}

int KernelSeam::refuse(int error) {
    errno = error;
    return -1;
}

std::function<std::optional<int>(clockid_t, timespec*)> KernelSeam::withFixedClock(bool phc,
                                                                                   long long ns) {
    return [=, others = clockGettime](clockid_t id, timespec* time) -> std::optional<int> {
        if (phc ? id < 0 : id == CLOCK_REALTIME) {
            *time = timespecOf(ns);
            return 0;
        }
        return others ? others(id, time) : std::nullopt;
    };
}

void KernelSeam::fixRealtime(long long ns) {
    clockGettime = withFixedClock(false, ns);
}

void KernelSeam::fixPhc(long long ns) {
    clockGettime = withFixedClock(true, ns);
}

extern "C" {

int clock_gettime(clockid_t id, timespec* time) noexcept {
    static const auto real = next(&clock_gettime, "clock_gettime");
    const auto faked = answer(&KernelSeam::clockGettime, id, time);
    return faked ? *faked : real(id, time);
}

int clock_settime(clockid_t id, const timespec* time) noexcept {
    static const auto real = next(&clock_settime, "clock_settime");
    const auto faked = answer(&KernelSeam::clockSettime, id, time);
    return faked ? *faked : real(id, time);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    static const auto real = next(&ioctl, "ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto faked = answer(&KernelSeam::ioctl, descriptor, request, argument);
    return faked ? *faked : real(descriptor, request, argument);
}

int open(const char* path, int flags, ...) {
    static const auto real = next(&open, "open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto faked = answer(&KernelSeam::open, path);
    return faked ? *faked : real(path, flags, mode);
}

int socket(int domain, int type, int protocol) noexcept {
    static const auto real = next(&socket, "socket");
    const auto faked = answer(&KernelSeam::socket, domain, type, protocol);
    return faked ? *faked : real(domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    static const auto real = next(&bind, "bind");
    const auto faked = answer(&KernelSeam::bind, descriptor, address);
    return faked ? *faked : real(descriptor, address, length);
}

int setsockopt(int descriptor, int level, int option, const void* value,
               socklen_t length) noexcept {
    static const auto real = next(&setsockopt, "setsockopt");
    const auto faked = answer(&KernelSeam::setsockopt, descriptor, level, option);
    return faked ? *faked : real(descriptor, level, option, value, length);
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) noexcept {
    static const auto real = next(&getsockopt, "getsockopt");
    const auto faked = answer(&KernelSeam::getsockopt, descriptor, level, option);
    return faked ? *faked : real(descriptor, level, option, value, length);
}

ssize_t sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
    static const auto real = next(&sendto, "sendto");
    const auto faked = answer(&KernelSeam::sendto, descriptor, data, size, flags, address);
    return faked ? *faked : real(descriptor, data, size, flags, address, length);
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    static const auto real = next(&recvmsg, "recvmsg");
    const auto faked = answer(&KernelSeam::recvmsg, descriptor, message, flags);
    return faked ? *faked : real(descriptor, message, flags);
}

int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
    static const auto real = next(&poll, "poll");
    const auto faked = answer(&KernelSeam::poll, descriptors, milliseconds);
    return faked ? *faked : real(descriptors, count, milliseconds);
}

int sched_yield() noexcept {
    static const auto real = next(&sched_yield, "sched_yield");
    const auto faked = answer(&KernelSeam::schedYield);
    return faked ? *faked : real();
}

int usleep(useconds_t microseconds) {
    static const auto real = next(&usleep, "usleep");
    const auto faked = answer(&KernelSeam::usleep, microseconds);
    return faked ? *faked : real(microseconds);
}

int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) noexcept {
    static const auto real = next(&pthread_sigmask, "pthread_sigmask");
    const auto faked = answer(&KernelSeam::pthreadSigmask);
    return faked ? *faked : real(how, set, old);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static const auto real = next(&pthread_create, "pthread_create");
    const auto faked = answer(&KernelSeam::pthreadCreate);
    return faked ? *faked : real(thread, attributes, body, argument);
}

unsigned if_nametoindex(const char* name) noexcept {
    static const auto real = next(&if_nametoindex, "if_nametoindex");
    const auto faked = answer(&KernelSeam::ifNametoindex, name);
    return faked ? *faked : real(name);
}
}
