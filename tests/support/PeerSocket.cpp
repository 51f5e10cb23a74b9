#include "tests/support/PeerSocket.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
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

void putTagBack(msghdr& message, Bytes& frame) {
    for (cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr;
         control = CMSG_NXTHDR(&message, control)) {
        if (control->cmsg_level != SOL_PACKET || control->cmsg_type != PACKET_AUXDATA) {
            continue;
        }
        tpacket_auxdata aux{};
        std::memcpy(&aux, CMSG_DATA(control), sizeof aux);
        if ((aux.tp_status & TP_STATUS_VLAN_VALID) != 0) {
            const unsigned char tag[] = {static_cast<unsigned char>(aux.tp_vlan_tpid >> 8),
                                         static_cast<unsigned char>(aux.tp_vlan_tpid),
                                         static_cast<unsigned char>(aux.tp_vlan_tci >> 8),
                                         static_cast<unsigned char>(aux.tp_vlan_tci)};
            frame.insert(frame.begin() + kAddresses, std::begin(tag), std::end(tag));
        }
    }
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

PeerSocket::PeerSocket(const std::string& interfaceName)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL))) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interfaceName.c_str()));
    packet_mreq promiscuous{};
    promiscuous.mr_ifindex = address.sll_ifindex;
    promiscuous.mr_type = PACKET_MR_PROMISC;
    const int on = 1;
    const int room = 8 * 1024 * 1024;
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    if (socket_ < 0 || bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        setsockopt(socket_, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
        setsockopt(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof promiscuous) !=
            0) {
        throw std::runtime_error("peer socket on " + interfaceName + ": " + std::strerror(errno));
    }
}

PeerSocket::~PeerSocket() {
    close(socket_);
}

bool PeerSocket::send(const Bytes& frame) const {
    return ::send(socket_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
}

std::optional<PeerFrame> PeerSocket::receive(Milliseconds patience) const {
    const Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
        pollfd readable{socket_, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(std::max<long long>(left.count(), 0))) <= 0) {
            return std::nullopt;
        }
        PeerFrame frame{Bytes(4096), Clock::now()};
        alignas(cmsghdr) unsigned char control[256];
        iovec block{frame.bytes.data(), frame.bytes.size()};
        sockaddr_ll from{};
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &block;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t count = recvmsg(socket_, &message, 0);
        if (count >= 0 && from.sll_pkttype != PACKET_OUTGOING) {
            frame.bytes.resize(static_cast<std::size_t>(count));
            putTagBack(message, frame.bytes);
            return frame;
        }
    }
}

std::optional<PeerFrame> PeerSocket::awaitType(int type, Milliseconds patience) const {
    const Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
        const std::optional<PeerFrame> frame = receive(left);
        if (!frame || frame->ptpType() == type) {
            return frame;
        }
    }
}

void PeerSocket::drain() const {
    while (receive(Milliseconds(0))) {
    }
}
