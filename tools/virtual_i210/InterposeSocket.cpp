#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/netlink.h>

#include <algorithm>
#include <cstring>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/RealFunctions.h"

/** Sockets that frames or questions about a card go through, and their timestamping options. */

namespace {

using virtual_i210::Descriptor;
using virtual_i210::descriptorAt;
using virtual_i210::DescriptorKind;
using virtual_i210::descriptorOf;
using virtual_i210::real;

constexpr std::uint32_t kHardwareFlags =
    SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_SYS_HARDWARE |
    SOF_TIMESTAMPING_RAW_HARDWARE;
constexpr int kSocketTypeMask = 0xF;

DescriptorKind kindOf(int domain, int type, int protocol) {
    if (domain == AF_PACKET && (type & kSocketTypeMask) == SOCK_RAW) {
        return DescriptorKind::kPacketSocket;
    }
    const bool generic = domain == AF_NETLINK && protocol == NETLINK_GENERIC;
    return generic ? DescriptorKind::kGenericNetlink : DescriptorKind::kForeign;
}

/** The kernel's software timestamps carry the card's: the flags it needs to report them, without
 *  those that would hide the frame that a transmit timestamp belongs to. */
std::uint32_t kernelFlags(std::uint32_t wished) {
    if ((wished & kHardwareFlags) == 0) {
        return wished;
    }
    const std::uint32_t hidden =
        kHardwareFlags | SOF_TIMESTAMPING_OPT_TSONLY | SOF_TIMESTAMPING_BIND_PHC;
    return (wished & ~hidden) | SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
}

int setStampFlags(int fd, Descriptor& socket, const void* value, socklen_t length) {
    unsigned char copy[8] = {};
    const socklen_t copied = std::min<socklen_t>(length, sizeof copy);
    std::memcpy(copy, value, copied);
    std::uint32_t wished = 0;
    std::memcpy(&wished, copy, sizeof wished);
    const std::uint32_t given = kernelFlags(wished);
    std::memcpy(copy, &given, sizeof given);
    const int result = real().setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPING, copy, copied);
    if (result == 0) {
        socket.stampFlags.store(wished);
    }
    return result;
}

}  // namespace

VIRTUAL_I210_EXPORT int socket(int domain, int type, int protocol) noexcept {
    const int fd = real().socket(domain, type, protocol);
    virtual_i210::forget(fd);
    const DescriptorKind kind = kindOf(domain, type, protocol);
    Descriptor* descriptor = kind == DescriptorKind::kForeign ? nullptr : descriptorAt(fd);
    if (descriptor != nullptr && virtual_i210::stateForCall() != nullptr) {
        descriptor->stampFlags.store(0);
        descriptor->cardOfInterface.store(0);
        descriptor->lastGivenRawNs.store(0);
        descriptor->createdRawNs.store(virtual_i210::rawNowNs());
        descriptor->kind.store(kind, std::memory_order_release);
    }
    return fd;
}

VIRTUAL_I210_EXPORT int setsockopt(int fd, int level, int option, const void* value,
                                   socklen_t length) noexcept {
    const bool stamping = level == SOL_SOCKET && option == SO_TIMESTAMPING && value != nullptr &&
                          length >= sizeof(std::uint32_t);
    Descriptor* socket = stamping ? descriptorOf(fd, DescriptorKind::kPacketSocket) : nullptr;
    return socket != nullptr ? setStampFlags(fd, *socket, value, length)
                             : real().setsockopt(fd, level, option, value, length);
}

VIRTUAL_I210_EXPORT int getsockopt(int fd, int level, int option, void* value,
                                   socklen_t* length) noexcept {
    const int result = real().getsockopt(fd, level, option, value, length);
    const bool stamping = result == 0 && level == SOL_SOCKET && option == SO_TIMESTAMPING &&
                          *length >= sizeof(std::uint32_t);
    const Descriptor* socket = stamping ? descriptorOf(fd, DescriptorKind::kPacketSocket) : nullptr;
    if (socket != nullptr) {
        const std::uint32_t wished = socket->stampFlags.load();
        std::memcpy(value, &wished, sizeof wished);
    }
    return result;
}
