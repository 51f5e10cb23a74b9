#include <linux/close_range.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/Timers.h"

/** Opening, copying and closing of descriptors. */

namespace {

using virtual_i210::CardState;
using virtual_i210::copyDescriptor;
using virtual_i210::Descriptor;
using virtual_i210::descriptorAt;
using virtual_i210::DescriptorKind;
using virtual_i210::forget;
using virtual_i210::real;

constexpr char kPhcPrefix[] = "/dev/ptp";

/** The card whose device this path names, or null. Everything but "/dev/ptpN" fails early. */
CardState* cardOfPath(const char* path) {
    if (path == nullptr || std::strncmp(path, kPhcPrefix, sizeof kPhcPrefix - 1) != 0) {
        return nullptr;
    }
    const char* digits = path + sizeof kPhcPrefix - 1;
    const std::size_t count = std::strspn(digits, "0123456789");
    if (count == 0 || count > 3 || digits[count] != '\0') {
        return nullptr;
    }
    const auto index = static_cast<std::int32_t>(std::strtol(digits, nullptr, 10));
    auto* state = virtual_i210::stateForCall();
    return state == nullptr ? nullptr : virtual_i210::cardOfDevice(*state, index);
}

/** A real descriptor stands in for the device, so that the kernel gives it a number that is free
 *  and copies, closes and inherits it. */
int openPhc(const CardState& card, int flags) {
    if (card.faults.phcHidden.load() != 0) {
        return virtual_i210::failWith(ENOENT);
    }
    const int fd = eventfd(0, ((flags & O_CLOEXEC) != 0 ? EFD_CLOEXEC : 0) |
                                  ((flags & O_NONBLOCK) != 0 ? EFD_NONBLOCK : 0));
    Descriptor* descriptor = descriptorAt(fd);
    if (descriptor == nullptr) {
        if (fd >= 0) {
            real().close(fd);
            errno = EMFILE;
        }
        return -1;
    }
    descriptor->writable.store((flags & O_ACCMODE) != O_RDONLY);
    descriptor->card.store(virtual_i210::stateForCall()->indexOf(card));
    descriptor->kind.store(DescriptorKind::kPhc, std::memory_order_release);
    return fd;
}

int opened(int fd) {
    forget(fd);
    return fd;
}

/** The mode behind the flags, which only a call that may create a file is given. */
mode_t modeOf(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

int openWith(decltype(&::openat) realOpen, int directory, const char* path, int flags,
             mode_t mode) {
    const CardState* card = cardOfPath(path);
    return card != nullptr ? openPhc(*card, flags) : opened(realOpen(directory, path, flags, mode));
}

int copied(int from, int to) {
    if (to >= 0 && to != from) {
        virtual_i210::closeTimer(to);
        copyDescriptor(from, to);
    }
    return to;
}

int controlWith(decltype(&::fcntl) realControl, int fd, int command, void* argument) {
    const int result = realControl(fd, command, argument);
    const bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return copies ? copied(fd, result) : result;
}

}  // namespace

VIRTUAL_I210_EXPORT int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openWith(real().openat, AT_FDCWD, path, flags, mode);
}

VIRTUAL_I210_EXPORT int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openWith(real().openat64, AT_FDCWD, path, flags, mode);
}

VIRTUAL_I210_EXPORT int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openWith(real().openat, directory, path, flags, mode);
}

VIRTUAL_I210_EXPORT int openat64(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openWith(real().openat64, directory, path, flags, mode);
}

/** What programs call that were compiled with checks on the arguments of open. */
VIRTUAL_I210_EXPORT int __open_2(const char* path, int flags) {
    return open(path, flags);
}

VIRTUAL_I210_EXPORT int __open64_2(const char* path, int flags) {
    return open64(path, flags);
}

VIRTUAL_I210_EXPORT int __openat_2(int directory, const char* path, int flags) {
    return openat(directory, path, flags);
}

VIRTUAL_I210_EXPORT int __openat64_2(int directory, const char* path, int flags) {
    return openat64(directory, path, flags);
}

VIRTUAL_I210_EXPORT int close(int fd) {
    forget(fd);
    virtual_i210::closeTimer(fd);
    const int result = real().close(fd);
    virtual_i210::tellDescriptorWaiters();
    return result;
}

VIRTUAL_I210_EXPORT int close_range(unsigned first, unsigned last, int flags) noexcept {
    const int result = real().closeRange(first, last, flags);
    const bool closes = (static_cast<unsigned>(flags) & CLOSE_RANGE_CLOEXEC) == 0;
    for (unsigned fd = first; result == 0 && closes && fd <= last; ++fd) {
        if (fd >= static_cast<unsigned>(virtual_i210::kMaxDescriptors)) {
            break;
        }
        forget(static_cast<int>(fd));
        virtual_i210::closeTimer(static_cast<int>(fd));
    }
    return result;
}

VIRTUAL_I210_EXPORT int dup(int from) noexcept {
    return copied(from, real().dup(from));
}

VIRTUAL_I210_EXPORT int dup2(int from, int to) noexcept {
    return copied(from, real().dup2(from, to));
}

VIRTUAL_I210_EXPORT int dup3(int from, int to, int flags) noexcept {
    return copied(from, real().dup3(from, to, flags));
}

VIRTUAL_I210_EXPORT int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return controlWith(real().fcntl, fd, command, argument);
}

VIRTUAL_I210_EXPORT int fcntl64(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return controlWith(real().fcntl64, fd, command, argument);
}
