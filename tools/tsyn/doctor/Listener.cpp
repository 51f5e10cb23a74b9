#include "tools/tsyn/doctor/Listener.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <net/ethernet.h>
#include <poll.h>
#include <sys/socket.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/check/PtpFields.h"
#include "tools/tsyn/check/PtpPayload.h"

namespace tsyn::doctor {
namespace {

/** A flood shall not fill the memory; some 80 minutes of a usual network. */
constexpr std::size_t kMostFrames = 100000;
constexpr std::size_t kAddressesSize = 12;
constexpr unsigned int kVlanIdMask = 0xFFF;

double monotonicS() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

template <typename Value>
bool setOption(int fd, int level, int option, const Value& value) {
    return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

/** PTP, with or without a tag; of what a node sends itself the tag still stands in the frame. */
bool attachFilter(int fd) {
    constexpr unsigned int kPtp = 0x88F7;
    constexpr unsigned int kTag = 0x8100;
    sock_filter program[] = {
        {BPF_LD | BPF_H | BPF_ABS, 0, 0, 12},
        {BPF_JMP | BPF_JEQ | BPF_K, 3, 0, kPtp},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, kTag},
        {BPF_LD | BPF_H | BPF_ABS, 0, 0, 16},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, kPtp},
        {BPF_RET | BPF_K, 0, 0, 0xFFFFFFFF},
        {BPF_RET | BPF_K, 0, 0, 0},
    };
    const sock_fprog filter{sizeof program / sizeof *program, program};
    return setOption(fd, SOL_SOCKET, SO_ATTACH_FILTER, filter);
}

/** While it listens the card lets gPTP frames pass, daemon or not; the kernel takes the address
 *  back with the socket. */
void join(int fd, int interfaceIndex) {
    constexpr unsigned char kGptpAddress[] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};
    packet_mreq request{};
    request.mr_ifindex = interfaceIndex;
    request.mr_type = PACKET_MR_MULTICAST;
    request.mr_alen = sizeof kGptpAddress;
    std::copy(std::begin(kGptpAddress), std::end(kGptpAddress), request.mr_address);
    static_cast<void>(setOption(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, request));
}

/** The filter stands before the socket hears anything. False with errno. */
bool openOn(tools::OwnDescriptor& fd, int interfaceIndex) {
    fd.reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    constexpr int kStamps = SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = interfaceIndex;
    if (!fd.isOpen() || !attachFilter(fd.get()) ||
        !setOption(fd.get(), SOL_SOCKET, SO_TIMESTAMPING, kStamps) ||
        !setOption(fd.get(), SOL_PACKET, PACKET_AUXDATA, 1) ||
        bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        return false;
    }
    join(fd.get(), interfaceIndex);
    return true;
}

struct Received {
    unsigned char bytes[2048];
    std::size_t size = 0;
    bool isOutgoing = false;
    int tag = -1;
    std::optional<unsigned long long> rxNs;
};

void takeControl(const cmsghdr& control, Received& received) {
    if (control.cmsg_level == SOL_SOCKET && control.cmsg_type == SO_TIMESTAMPING) {
        timespec times[3];
        std::memcpy(times, CMSG_DATA(&control), sizeof times);
        constexpr unsigned long long kNsPerSecond = 1000000000;
        const unsigned long long ns =
            static_cast<unsigned long long>(times[2].tv_sec) * kNsPerSecond +
            static_cast<unsigned long long>(times[2].tv_nsec);
        received.rxNs = ns == 0 ? std::nullopt : std::optional(ns);
    } else if (control.cmsg_level == SOL_PACKET && control.cmsg_type == PACKET_AUXDATA) {
        tpacket_auxdata data{};
        std::memcpy(&data, CMSG_DATA(&control), sizeof data);
        if ((data.tp_status & TP_STATUS_VLAN_VALID) != 0) {
            received.tag = static_cast<int>(data.tp_vlan_tci & kVlanIdMask);
        }
    }
}

bool receive(int fd, Received& received) {
    sockaddr_ll from{};
    alignas(cmsghdr) unsigned char control[512];
    iovec block{received.bytes, sizeof received.bytes};
    msghdr header{};
    header.msg_name = &from;
    header.msg_namelen = sizeof from;
    header.msg_iov = &block;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(fd, &header, MSG_DONTWAIT);
    if (size < 0) {
        return false;
    }
    received.size = static_cast<std::size_t>(size);
    received.isOutgoing = from.sll_pkttype == PACKET_OUTGOING;
    for (cmsghdr* each = CMSG_FIRSTHDR(&header); each != nullptr;
         each = CMSG_NXTHDR(&header, each)) {
        takeControl(*each, received);
    }
    return true;
}

void keep(const Received& received, double atS, const MacAddress& own, WireFacts& wire) {
    std::optional<Heard> frame = heardFrame(received.bytes, received.size, received.tag);
    if (!frame) {
        return;
    }
    if (wire.frames.size() == kMostFrames) {
        ++wire.unkept;
        return;
    }
    frame->atS = atS;
    frame->isOwn = received.isOutgoing || frame->source == own;
    frame->rxNs = received.rxNs;
    wire.frames.push_back(std::move(*frame));
}

void sleepFor(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace

std::optional<Heard> heardFrame(const unsigned char* bytes, std::size_t size, int tag) {
    CaptureFrame whole;
    whole.bytes = bytes;
    whole.captured = size;
    whole.onWire = size;
    const PtpPayload payload = findPtp(whole);
    if (!payload.isPtp) {
        return {};
    }
    Heard frame;
    std::copy_n(bytes + frame.source.size(), frame.source.size(), frame.source.begin());
    frame.vlanId = tag;
    if (tag < 0 && payload.vlanTagged) {
        constexpr std::size_t kTagAt = kAddressesSize + 2;
        frame.vlanId = static_cast<int>(ptp::number16(bytes + kTagAt) & kVlanIdMask);
    }
    frame.message.assign(payload.bytes, payload.bytes + payload.size);
    return frame;
}

WireFacts listen(const Evidence& evidence) {
    WireFacts wire;
    tools::OwnDescriptor fd;
    if (!openOn(fd, static_cast<int>(evidence.interface.index))) {
        wire.problem = std::string("no raw socket (") + std::strerror(errno) + ")";
        sleepFor(evidence.expected.listenS);  // the record is looked at before and after
        return wire;
    }
    const double begin = monotonicS();
    double left = evidence.expected.listenS;
    while (left > 0.0) {
        pollfd entry{fd.get(), POLLIN, 0};
        constexpr double kLongestS = 3600.0;
        poll(&entry, 1, 1 + static_cast<int>(1000.0 * std::min(left, kLongestS)));
        Received received;
        const bool hasFrame = receive(fd.get(), received);
        const double atS = monotonicS() - begin;
        if (hasFrame) {
            keep(received, atS, evidence.interface.address, wire);
        } else if (errno == ENETDOWN) {
            wire.problem = "the interface went down while it was listened to";
            break;
        }
        left = evidence.expected.listenS - atS;
    }
    wire.listenedS = monotonicS() - begin;
    return wire;
}

}  // namespace tsyn::doctor
