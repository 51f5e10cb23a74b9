#include "profile/InterfaceLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/DbgLog.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;
constexpr mode_t kOwners = 0600;

int lockDescriptor = -1;

/** Beside the segment, which goes by the interface's name as well. An existing file is opened
 *  without O_CREAT: a sticky folder refuses that for another user's file. */
int openLock(const char* interfaceName) {
    char path[64];
    std::snprintf(path, sizeof path, "/dev/shm/%s.lock", interfaceName);
    int descriptor = open(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0 && errno == EACCES) {
        descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    }
    if (descriptor < 0 && errno == ENOENT) {
        descriptor = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwners);
        if (descriptor >= 0) {
            static_cast<void>(fchmod(descriptor, kOwners));
        }
    }
    return descriptor;
}

int ownerIn(int descriptor) {
    char text[16] = "";
    const ssize_t length = pread(descriptor, text, sizeof text - 1, 0);
    const long owner = length > 0 ? std::strtol(text, nullptr, 10) : 0;
    return owner > 0 ? static_cast<int>(owner) : -1;
}

/** For the daemon that comes second; a file that cannot be written locks all the same. */
void writeOwner(int descriptor) {
    char text[16];
    const int length = std::snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
    if (ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, text, static_cast<std::size_t>(length), 0) != length) {
        ZEB_LOG(kInfo, "The lock does not tell its owner: %s\n", strerror(errno));
    }
}

}  // namespace

int interface_lock::take(const char* interfaceName) {
    if (lockDescriptor >= 0) {
        return 0;
    }
    const int descriptor = openLock(interfaceName);
    if (descriptor < 0) {
        ZEB_LOG(kError, "A second daemon on %s would go unnoticed: %s\n", interfaceName,
                strerror(errno));
        return 0;
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int owner = ownerIn(descriptor);
        close(descriptor);
        return owner;
    }
    writeOwner(descriptor);
    lockDescriptor = descriptor;
    return 0;
}

void interface_lock::release() {
    if (lockDescriptor >= 0) {
        close(lockDescriptor);
        lockDescriptor = -1;
    }
}
