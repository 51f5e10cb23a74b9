#include "tools/tsyn/run/InterfaceChecks.h"

#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>

#include "tools/common/OwnDescriptor.h"

namespace tsyn {
namespace {

using tools::OwnDescriptor;

std::string reason() {
    return std::strerror(errno);
}

ifreq requestFor(const std::string& interfaceName) {
    ifreq request{};
    interfaceName.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return request;
}

Problem readFlags(const std::string& interfaceName, ifreq& request) {
    const OwnDescriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    request = requestFor(interfaceName);
    if (!fd.isOpen() || ioctl(fd.get(), SIOCGIFFLAGS, &request) < 0) {
        return "the interface flags cannot be read (" + reason() + ")";
    }
    return {};
}

Problem readTimestamping(const std::string& interfaceName, ethtool_ts_info& info) {
    const OwnDescriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    info = {};
    info.cmd = ETHTOOL_GET_TS_INFO;
    ifreq request = requestFor(interfaceName);
    request.ifr_data = reinterpret_cast<char*>(&info);
    if (!fd.isOpen() || ioctl(fd.get(), SIOCETHTOOL, &request) < 0) {
        return "its timestamping abilities cannot be read (" + reason() +
               "); 'ethtool -T' must work on it";
    }
    return {};
}

Problem checkExists(const std::string& interfaceName) {
    if (interfaceName.empty() || interfaceName.size() >= IFNAMSIZ) {
        return "not an interface name; it has 1 to 15 characters";
    }
    if (if_nametoindex(interfaceName.c_str()) == 0) {
        return "no such interface; 'ip link' lists those there are";
    }
    return {};
}

Problem checkUp(const std::string& interfaceName) {
    ifreq request{};
    if (Problem problem = readFlags(interfaceName, request)) {
        return problem;
    }
    if ((request.ifr_flags & IFF_UP) == 0) {
        return "the interface is down; 'ip link set " + interfaceName + " up' raises it";
    }
    return {};
}

Problem checkPhc(const std::string& interfaceName) {
    ethtool_ts_info info{};
    if (Problem problem = readTimestamping(interfaceName, info)) {
        return problem;
    }
    if (info.phc_index < 0) {
        return "the card has no PTP hardware clock; 'ethtool -T' must name one (use an i210)";
    }
    // The daemon prints the index into two characters of the device name.
    if (info.phc_index > 99) {
        return "its clock is /dev/ptp" + std::to_string(info.phc_index) +
               "; only /dev/ptp0 to /dev/ptp99 are supported";
    }
    return {};
}

Problem checkTimestamping(const std::string& interfaceName) {
    ethtool_ts_info info{};
    if (Problem problem = readTimestamping(interfaceName, info)) {
        return problem;
    }
    constexpr unsigned int kNeeded =
        SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
    constexpr unsigned int kFilters =
        (1U << HWTSTAMP_FILTER_PTP_V2_EVENT) | (1U << HWTSTAMP_FILTER_ALL);
    const bool stamps = (info.so_timestamping & kNeeded) == kNeeded;
    const bool sends = (info.tx_types & (1U << HWTSTAMP_TX_ON)) != 0;
    if (!stamps || !sends || (info.rx_filters & kFilters) == 0) {
        return "the card has no hardware timestamping of PTP event messages; 'ethtool -T' must "
               "list hardware-transmit, hardware-receive and hardware-raw-clock";
    }
    return {};
}

Problem checkRawSocket(const std::string&) {
    const OwnDescriptor fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
    if (!fd.isOpen() && (errno == EPERM || errno == EACCES)) {
        return "no permission for raw sockets; tsyn needs CAP_NET_RAW "
               "(setcap cap_net_raw,cap_net_admin+ep, or run as root)";
    }
    if (!fd.isOpen()) {
        return "a raw socket cannot be opened (" + reason() + ")";
    }
    return {};
}

Problem checkAdministration(const std::string& interfaceName) {
    ifreq request{};
    if (Problem problem = readFlags(interfaceName, request)) {
        return problem;
    }
    // Writing the flags back unchanged asks for the capability and changes nothing.
    const OwnDescriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (ioctl(fd.get(), SIOCSIFFLAGS, &request) < 0) {
        return "no permission to set promiscuous mode and timestamping (" + reason() +
               "); tsyn needs CAP_NET_ADMIN (setcap cap_net_raw,cap_net_admin+ep, or run as root)";
    }
    return {};
}

Problem checkPhcAccess(const std::string& interfaceName) {
    ethtool_ts_info info{};
    if (Problem problem = readTimestamping(interfaceName, info)) {
        return problem;
    }
    const std::string path = "/dev/ptp" + std::to_string(info.phc_index);
    const OwnDescriptor fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd.isOpen()) {
        return path + " cannot be opened for reading and writing (" + reason() +
               "); give the user access with a udev rule or run as root";
    }
    return {};
}

Problem checkSegment(const std::string& interfaceName) {
    const std::string name = "/" + interfaceName;
    const OwnDescriptor present(shm_open(name.c_str(), O_RDONLY, 0));
    if (!present.isOpen() && errno == ENOENT) {
        return {};
    }
    // The daemon opens with O_CREAT, which a sticky /dev/shm refuses for another user's file.
    const OwnDescriptor fd(shm_open(name.c_str(), O_RDWR | O_CREAT, 0777));
    if (!fd.isOpen()) {
        return "its shared record /dev/shm" + name + " cannot be opened (" + reason() +
               "); remove the file, or run as the user who owns it";
    }
    return {};
}

}  // namespace

const std::vector<Check>& interfaceChecks() {
    static const std::vector<Check> checks = {
        {"interface", checkExists},          {"hardware clock", checkPhc},
        {"timestamping", checkTimestamping}, {"interface up", checkUp},
        {"raw socket", checkRawSocket},      {"administration", checkAdministration},
        {"clock access", checkPhcAccess},    {"shared record", checkSegment},
    };
    return checks;
}

Problem firstProblem(const std::string& interfaceName) {
    for (const Check& check : interfaceChecks()) {
        if (Problem problem = check.run(interfaceName)) {
            return interfaceName + ": " + *problem;
        }
    }
    return {};
}

}  // namespace tsyn
