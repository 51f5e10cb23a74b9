#include "tests/virtual_i210/PtpPort.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

void require(bool done, const char* action) {
    if (!done) {
        throw std::runtime_error(std::string(action) + ": " + std::strerror(errno));
    }
}

std::optional<std::int64_t> asNs(const timespec& time) {
    if (time.tv_sec == 0 && time.tv_nsec == 0) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void readControl(const cmsghdr& header, ReceivedFrame& frame) {
    if (header.cmsg_level == SOL_SOCKET && header.cmsg_type == SO_TIMESTAMPING) {
        timespec stamps[3];
        std::memcpy(stamps, CMSG_DATA(&header), sizeof stamps);
        frame.softwareNs = asNs(stamps[0]);
        frame.hardwareNs = asNs(stamps[2]);
    } else if (header.cmsg_level == SOL_PACKET && header.cmsg_type == PACKET_AUXDATA) {
        tpacket_auxdata data{};
        std::memcpy(&data, CMSG_DATA(&header), sizeof data);
        if ((data.tp_status & TP_STATUS_VLAN_VALID) != 0) {
            frame.vlanTci = data.tp_vlan_tci;
        }
    }
}

}  // namespace

Bytes ptpFrame(unsigned messageType, unsigned sequenceId, unsigned sourceAddress) {
    Bytes frame = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E,
                   0x02, 0x00, 0x00, 0x00, 0x00, static_cast<std::uint8_t>(sourceAddress),
                   0x88, 0xF7};
    frame.resize(14 + 44);
    frame[14] = static_cast<std::uint8_t>(0x10 | messageType);
    frame[15] = 0x02;
    frame[17] = 44;
    frame[44] = static_cast<std::uint8_t>(sequenceId >> 8);
    frame[45] = static_cast<std::uint8_t>(sequenceId);
    return frame;
}

Bytes taggedPtpFrame(unsigned messageType, unsigned sequenceId, unsigned tci) {
    Bytes frame = ptpFrame(messageType, sequenceId);
    const Bytes tag = {0x81, 0x00, static_cast<std::uint8_t>(tci >> 8),
                       static_cast<std::uint8_t>(tci)};
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

PtpPort::PtpPort(const std::string& ifName, unsigned stampFlags)
    : fd_(socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL))) {
    require(fd_ >= 0, "socket");
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(ifName.c_str()));
    require(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "bind");
    packet_mreq promiscuous{};
    promiscuous.mr_ifindex = address.sll_ifindex;
    promiscuous.mr_type = PACKET_MR_PROMISC;
    require(
        setsockopt(fd_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof promiscuous) == 0,
        "PACKET_ADD_MEMBERSHIP");
    require(setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMPING, &stampFlags, sizeof stampFlags) == 0,
            "SO_TIMESTAMPING");
    const int on = 1;
    require(setsockopt(fd_, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) == 0, "PACKET_AUXDATA");
    require(setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) == 0,
            "PACKET_IGNORE_OUTGOING");
}

PtpPort::~PtpPort() {
    close(fd_);
}

void PtpPort::send(const Bytes& frame) const {
    require(::send(fd_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size()),
            "send");
}

ReceivedFrame PtpPort::take(int flags) const {
    ReceivedFrame frame;
    frame.bytes.resize(256);
    alignas(cmsghdr) unsigned char control[512];
    iovec data{frame.bytes.data(), frame.bytes.size()};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t length = recvmsg(fd_, &message, flags | MSG_DONTWAIT);
    require(length >= 0, "recvmsg");
    frame.bytes.resize(static_cast<std::size_t>(length));
    for (const cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, const_cast<cmsghdr*>(header))) {
        readControl(*header, frame);
    }
    return frame;
}

std::optional<ReceivedFrame> PtpPort::receive(int timeoutMs) const {
    pollfd waiting{fd_, POLLIN, 0};
    if (poll(&waiting, 1, timeoutMs) != 1 || (waiting.revents & POLLIN) == 0) {
        return std::nullopt;
    }
    return take(0);
}

std::optional<ReceivedFrame> PtpPort::transmitStamp(int timeoutMs) const {
    pollfd waiting{fd_, 0, 0};
    if (poll(&waiting, 1, timeoutMs) != 1 || (waiting.revents & POLLERR) == 0) {
        return std::nullopt;
    }
    return take(MSG_ERRQUEUE);
}

int enableStamping(const std::string& ifName) {
    hwtstamp_config config{};
    config.tx_type = HWTSTAMP_TX_ON;
    config.rx_filter = HWTSTAMP_FILTER_PTP_V2_EVENT;
    ifreq request{};
    ifName.copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_data = reinterpret_cast<char*>(&config);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(fd, SIOCSHWTSTAMP, &request) == 0 ? 0 : errno;
    close(fd);
    return result;
}
