#include "tools/tsyn/run/DaemonLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>

#include "include/gPtpTimeReader.h"
#include "tools/common/OwnDescriptor.h"

namespace tsyn {
namespace {

/** The library locks a file beside the shared record, which tells its process. */
tools::OwnDescriptor openLock(const std::string& interfaceName) {
    const std::string path = "/dev/shm/" + interfaceName + ".lock";
    return tools::OwnDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
}

std::string runByOwner(const std::string& interfaceName, int lock) {
    char text[16] = "";
    const bool isTold = pread(lock, text, sizeof text - 1, 0) > 0;
    const long pid = isTold ? std::strtol(text, nullptr, 10) : 0;
    return interfaceName + ": already run by " +
           (pid > 0 ? "pid " + std::to_string(pid) : "another process") + "; end that one first";
}

}  // namespace

std::string runningBeside(const std::string& interfaceName) {
    gPtpTimeReader reader;
    gPtpReaderOpen(&reader, interfaceName.c_str());
    const bool isHeld = gPtpLockIsHeld(&reader) == 1;
    gPtpReaderClose(&reader);
    return isHeld ? runByOwner(interfaceName, openLock(interfaceName).get()) : std::string();
}

std::string whyRefused(const std::string& interfaceName) {
    const tools::OwnDescriptor lock = openLock(interfaceName);
    if (!lock.isOpen() || flock(lock.get(), LOCK_SH | LOCK_NB) == 0) {
        return interfaceName + ": the daemon refused to start; its log tells why";
    }
    return runByOwner(interfaceName, lock.get());
}

}  // namespace tsyn
