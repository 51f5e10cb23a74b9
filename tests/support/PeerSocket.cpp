#include "tests/support/PeerSocket.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t kAddresses = 12;

void require(bool done, const char* action) {
    if (!done) {
        throw std::runtime_error(std::string("peer socket, ") + action + ": " +
                                 std::strerror(errno));
    }
}

Milliseconds leftUntil(Clock::time_point deadline) {
    return std::max(std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()), kAtOnce);
}

std::optional<std::int64_t> asNs(const timespec& time) {
    if (time.tv_sec == 0 && time.tv_nsec == 0) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void putTagBack(const tpacket_auxdata& aux, Bytes& frame) {
    if ((aux.tp_status & TP_STATUS_VLAN_VALID) != 0) {
        const unsigned char tag[] = {static_cast<unsigned char>(aux.tp_vlan_tpid >> 8),
                                     static_cast<unsigned char>(aux.tp_vlan_tpid),
                                     static_cast<unsigned char>(aux.tp_vlan_tci >> 8),
                                     static_cast<unsigned char>(aux.tp_vlan_tci)};
        frame.insert(frame.begin() + kAddresses, std::begin(tag), std::end(tag));
    }
}

void readControl(const cmsghdr& header, PeerFrame& frame) {
    if (header.cmsg_level == SOL_SOCKET && header.cmsg_type == SO_TIMESTAMPING) {
        timespec stamps[3];
        std::memcpy(stamps, CMSG_DATA(&header), sizeof stamps);
        frame.softwareNs = asNs(stamps[0]);
        frame.hardwareNs = asNs(stamps[2]);
    } else if (header.cmsg_level == SOL_PACKET && header.cmsg_type == PACKET_AUXDATA) {
        tpacket_auxdata aux{};
        std::memcpy(&aux, CMSG_DATA(&header), sizeof aux);
        putTagBack(aux, frame.bytes);
    }
}

/** What poll tells of a socket within some time, 0 when that passes. */
short awaitEvent(int socket, short events, Milliseconds patience) {
    pollfd waiting{socket, events, 0};
    return poll(&waiting, 1, static_cast<int>(patience.count())) == 1 ? waiting.revents : short{0};
}

template <typename Value>
void setOption(int socket, int level, int option, const Value& value, const char* action) {
    require(setsockopt(socket, level, option, &value, sizeof value) == 0, action);
}

}  // namespace

int PeerFrame::ptpType() const {
    const std::size_t at = isTagged() ? 16 : 12;
    const bool isPtp = bytes.size() > at + 2 && bytes[at] == 0x88 && bytes[at + 1] == 0xF7;
    return isPtp ? bytes[at + 2] & 0x0F : -1;
}

Bytes PeerFrame::message() const {
    const std::size_t header = isTagged() ? 18 : 14;
    return {bytes.begin() + static_cast<long>(std::min(header, bytes.size())), bytes.end()};
}

PeerSocket::PeerSocket(const std::string& interfaceName, unsigned stampFlags)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL))) {
    require(socket_ >= 0, "socket");
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interfaceName.c_str()));
    require(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "bind");
    packet_mreq promiscuous{};
    promiscuous.mr_ifindex = address.sll_ifindex;
    promiscuous.mr_type = PACKET_MR_PROMISC;
    const int on = 1;
    const int room = 8 * 1024 * 1024;
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    setOption(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, promiscuous, "PACKET_ADD_MEMBERSHIP");
    setOption(socket_, SOL_PACKET, PACKET_AUXDATA, on, "PACKET_AUXDATA");
    setOption(socket_, SOL_PACKET, PACKET_IGNORE_OUTGOING, on, "PACKET_IGNORE_OUTGOING");
    setOption(socket_, SOL_SOCKET, SO_TIMESTAMPING, stampFlags, "SO_TIMESTAMPING");
}

PeerSocket::~PeerSocket() {
    close(socket_);
}

bool PeerSocket::send(const Bytes& frame) const {
    return ::send(socket_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
}

std::optional<PeerFrame> PeerSocket::take(int flags) const {
    PeerFrame frame{Bytes(4096), Clock::now(), {}, {}};
    alignas(cmsghdr) unsigned char control[512];
    iovec block{frame.bytes.data(), frame.bytes.size()};
    msghdr message{};
    message.msg_iov = &block;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t count = recvmsg(socket_, &message, flags | MSG_DONTWAIT);
    if (count < 0) {
        return std::nullopt;
    }
    frame.bytes.resize(static_cast<std::size_t>(count));
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        readControl(*header, frame);
    }
    return frame;
}

std::optional<PeerFrame> PeerSocket::receive(Milliseconds patience) const {
    const bool arrived = (awaitEvent(socket_, POLLIN, patience) & POLLIN) != 0;
    return arrived ? take(0) : std::nullopt;
}

std::optional<PeerFrame> PeerSocket::transmitStamp(Milliseconds patience) const {
    const bool stamped = (awaitEvent(socket_, 0, patience) & POLLERR) != 0;
    return stamped ? take(MSG_ERRQUEUE) : std::nullopt;
}

std::optional<PeerFrame> PeerSocket::awaitType(int type, Milliseconds patience) const {
    const Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        std::optional<PeerFrame> frame = receive(leftUntil(deadline));
        if (!frame || frame->ptpType() == type) {
            return frame;
        }
    }
}

void PeerSocket::drain() const {
    while (receive(kAtOnce)) {
    }
}

int enableStamping(const std::string& interfaceName) {
    hwtstamp_config config{};
    config.tx_type = HWTSTAMP_TX_ON;
    config.rx_filter = HWTSTAMP_FILTER_PTP_V2_EVENT;
    ifreq request{};
    interfaceName.copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_data = reinterpret_cast<char*>(&config);
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(descriptor, SIOCSHWTSTAMP, &request) == 0 ? 0 : errno;
    close(descriptor);
    return result;
}
