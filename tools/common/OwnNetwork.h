#pragma once

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

#include "tools/common/OwnDescriptor.h"

/** What a program needs that makes a network of its own. */
namespace tools {

/** Makes the process the root of a user namespace of its own, so that it may make others. Throws
 *  std::system_error. */
inline void becomeNamespaceRoot() {
    const auto write = [](const std::string& path, const std::string& text) {
        std::ofstream file(path);
        file << text;
        if (!file.flush()) {
            throw std::system_error(errno, std::generic_category(), "cannot write " + path);
        }
    };
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot make a user namespace; allow them or run as root");
    }
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", "0 " + user + " 1");
    write("/proc/self/gid_map", "0 " + group + " 1");
}

/** Whether a link carries frames. The kernel lets a new one do so only in deferred work; this
 *  question makes it catch up. */
inline bool carriesFrames(const std::string& interfaceName) {
    ethtool_value link{};
    link.cmd = ETHTOOL_GLINK;
    ifreq request{};
    interfaceName.copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_data = reinterpret_cast<char*>(&link);
    const OwnDescriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return fd.isOpen() && ioctl(fd.get(), SIOCETHTOOL, &request) == 0 && link.data != 0;
}

}  // namespace tools
