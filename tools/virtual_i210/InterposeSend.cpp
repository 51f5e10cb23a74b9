#include <linux/genetlink.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>

#include <algorithm>
#include <cstring>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/Polling.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/Transmission.h"

/** Calls that send: frames on packet sockets, and ethtool's first question. */

namespace {

using virtual_i210::Descriptor;
using virtual_i210::DescriptorKind;
using virtual_i210::descriptorOf;
using virtual_i210::OutgoingFrame;
using virtual_i210::real;

/** False when the message is larger than any frame. */
bool gather(const msghdr& message, OutgoingFrame& frame) {
    for (std::size_t i = 0; i < message.msg_iovlen; ++i) {
        const iovec& part = message.msg_iov[i];
        if (part.iov_len > sizeof frame.bytes - frame.length) {
            return false;
        }
        if (part.iov_len > 0) {
            std::memcpy(frame.bytes + frame.length, part.iov_base, part.iov_len);
            frame.length += part.iov_len;
        }
    }
    return true;
}

int interfaceOf(int fd, const OutgoingFrame& frame) {
    sockaddr_ll address{};
    if (frame.nameLength >= offsetof(sockaddr_ll, sll_addr)) {
        std::memcpy(&address, &frame.name, sizeof address);
        return address.sll_ifindex;
    }
    socklen_t length = sizeof address;
    const bool bound = getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    return bound ? address.sll_ifindex : 0;
}

/** Timestamp flags that a control message sets for this frame alone; false when there are other
 *  control messages too, which only the kernel understands. */
bool readPacketFlags(const msghdr& message, std::uint32_t& flags) {
    msghdr copy = message;
    for (cmsghdr* header = CMSG_FIRSTHDR(&copy); header != nullptr;
         header = CMSG_NXTHDR(&copy, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SO_TIMESTAMPING ||
            header->cmsg_len < CMSG_LEN(sizeof flags)) {
            return false;
        }
        std::memcpy(&flags, CMSG_DATA(header), sizeof flags);
    }
    return true;
}

bool prepare(int fd, Descriptor& socket, const msghdr& message, OutgoingFrame& frame) {
    if (!gather(message, frame) || !readPacketFlags(message, frame.packetStampFlags)) {
        return false;
    }
    const auto ptp = virtual_i210::parsePtpFrame(frame.bytes, frame.length);
    if (!ptp || message.msg_namelen > sizeof frame.name) {
        return false;
    }
    if (message.msg_name != nullptr) {
        frame.nameLength = message.msg_namelen;
        std::memcpy(&frame.name, message.msg_name, frame.nameLength);
    }
    frame.card = cardOfInterface(fd, socket, interfaceOf(fd, frame));
    if (frame.card == nullptr) {
        return false;
    }
    const std::uint32_t asked = frame.packetStampFlags | socket.stampFlags.load();
    frame.ptp = *ptp;
    // The card stamps whatever a socket that asked for it sends, general messages included.
    frame.wantsStamp =
        (asked & SOF_TIMESTAMPING_TX_HARDWARE) != 0 && frame.card->txType.load() == HWTSTAMP_TX_ON;
    return true;
}

/** A frame that is no PTP message has no timestamp, but the cable carries it too. */
ssize_t told(int fd, const OutgoingFrame& frame, ssize_t sent) {
    const std::uint64_t card =
        virtual_i210::timeIsSimulated() ? virtual_i210::interestIn(fd).card : 0;
    if (sent >= 0 && card != 0 && card != virtual_i210::kEveryCard) {
        virtual_i210::frameLeft(static_cast<std::uint32_t>(card) - 1, frame.bytes, frame.length);
    }
    return sent;
}

/** Sending by a descriptor of any other kind: another thread of the run may wait for it. */
template <typename Call>
ssize_t sendElsewhere(Call call) {
    virtual_i210::chargeCall();
    const ssize_t sent = call();
    virtual_i210::tellDescriptorWaiters();
    return sent;
}

ssize_t sendOnPacketSocket(int fd, Descriptor& socket, const msghdr& message, int flags) {
    OutgoingFrame frame;
    virtual_i210::chargeCall();
    if (!prepare(fd, socket, message, frame)) {
        const ssize_t sent = real().sendmsg(fd, &message, flags);
        return told(fd, frame, sent);
    }
    frame.fd = fd;
    frame.flags = flags;
    return transmit(frame);
}

ssize_t sendBytes(int fd, Descriptor& socket, const void* data, std::size_t length, int flags,
                  const sockaddr* name, socklen_t nameLength) {
    iovec part{const_cast<void*>(data), length};
    msghdr message{};
    message.msg_name = const_cast<sockaddr*>(name);
    message.msg_namelen = name == nullptr ? 0 : nameLength;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return sendOnPacketSocket(fd, socket, message, flags);
}

/** Where ethtool asks for the number of the kernel's "ethtool" netlink family, the name is spoilt:
 *  the tool then asks by ioctl, which the card answers. */
class FamilyQuestion {
public:
    FamilyQuestion(const void* data, std::size_t length) {
        constexpr char kName[] = "ethtool";
        nlmsghdr header{};
        if (length > sizeof bytes_ || length < NLMSG_HDRLEN + GENL_HDRLEN) {
            return;
        }
        std::memcpy(bytes_, data, length);
        std::memcpy(&header, bytes_, sizeof header);
        unsigned char* end = bytes_ + length;
        unsigned char* name = std::search(bytes_, end, kName, kName + sizeof kName);
        concerns_ = header.nlmsg_type == GENL_ID_CTRL &&
                    bytes_[NLMSG_HDRLEN] == CTRL_CMD_GETFAMILY && name != end;
        if (concerns_) {
            *name = '?';
        }
    }
    bool concerns() const { return concerns_; }
    const void* bytes() const { return bytes_; }

private:
    bool concerns_ = false;
    unsigned char bytes_[128];
};

}  // namespace

VIRTUAL_I210_EXPORT ssize_t sendto(int fd, const void* data, size_t length, int flags,
                                   const sockaddr* name, socklen_t nameLength) {
    if (Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket)) {
        return sendBytes(fd, *socket, data, length, flags, name, nameLength);
    }
    if (descriptorOf(fd, DescriptorKind::kGenericNetlink) != nullptr) {
        const FamilyQuestion question(data, length);
        return real().sendto(fd, question.concerns() ? question.bytes() : data, length, flags, name,
                             nameLength);
    }
    return sendElsewhere([=] { return real().sendto(fd, data, length, flags, name, nameLength); });
}

VIRTUAL_I210_EXPORT ssize_t send(int fd, const void* data, size_t length, int flags) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return socket != nullptr ? sendBytes(fd, *socket, data, length, flags, nullptr, 0)
                             : sendElsewhere([=] { return real().send(fd, data, length, flags); });
}

VIRTUAL_I210_EXPORT ssize_t write(int fd, const void* data, size_t length) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return socket != nullptr ? sendBytes(fd, *socket, data, length, 0, nullptr, 0)
                             : sendElsewhere([=] { return real().write(fd, data, length); });
}

VIRTUAL_I210_EXPORT ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return socket != nullptr ? sendOnPacketSocket(fd, *socket, *message, flags)
                             : sendElsewhere([=] { return real().sendmsg(fd, message, flags); });
}
