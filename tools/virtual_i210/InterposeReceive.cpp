#include <linux/if_packet.h>
#include <linux/net_tstamp.h>

#include <algorithm>
#include <cstring>

#include "tools/virtual_i210/ControlMessages.h"
#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/Frame.h"
#include "tools/virtual_i210/Polling.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/RealWaits.h"
#include "tools/virtual_i210/Stamping.h"

/** Calls that receive frames, and transmit timestamps from the error queue. */

namespace {

using virtual_i210::CardState;
using virtual_i210::Descriptor;
using virtual_i210::DescriptorKind;
using virtual_i210::descriptorOf;
using virtual_i210::real;
using virtual_i210::SeenFrame;
using virtual_i210::StampReport;

/** What the kernel shall tell beside the bytes, whatever the caller has room for. */
struct Reception {
    Reception() {
        message.msg_name = &name;
        message.msg_namelen = sizeof name;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
    }
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

    msghdr message{};
    sockaddr_ll name{};
    alignas(cmsghdr) unsigned char control[1024];
};

/** The kernel stamps in real time. */
void simulateStamps(Reception& reception) {
    if (virtual_i210::timeIsSimulated()) {
        virtual_i210::simulateKernelStamps(reception.message, virtual_i210::realtimeNowNs());
    }
}

std::size_t gather(const msghdr& message, std::size_t received, std::uint8_t* bytes) {
    std::size_t length = 0;
    const std::size_t wanted = std::min(received, virtual_i210::kMaxFrameBytes);
    for (std::size_t i = 0; i < message.msg_iovlen && length < wanted; ++i) {
        const std::size_t part = std::min(message.msg_iov[i].iov_len, wanted - length);
        if (part > 0) {
            std::memcpy(bytes + length, message.msg_iov[i].iov_base, part);
            length += part;
        }
    }
    return length;
}

std::size_t scatter(const std::uint8_t* bytes, std::size_t length, msghdr& message) {
    std::size_t done = 0;
    for (std::size_t i = 0; i < message.msg_iovlen && done < length; ++i) {
        const std::size_t part = std::min(message.msg_iov[i].iov_len, length - done);
        if (part > 0) {
            std::memcpy(message.msg_iov[i].iov_base, bytes + done, part);
            done += part;
        }
    }
    return done;
}

void deliver(Reception& reception, const StampReport& report, msghdr& target) {
    const msghdr& received = reception.message;
    if (target.msg_name != nullptr) {
        std::memcpy(target.msg_name, &reception.name,
                    std::min<std::size_t>(target.msg_namelen, received.msg_namelen));
        target.msg_namelen = received.msg_namelen;
    }
    const int truncated = deliverControl(reception.message, report, target);
    target.msg_flags = (received.msg_flags & ~MSG_CTRUNC) | truncated;
}

ssize_t receiveFrame(int fd, Descriptor& socket, msghdr& target, int flags) {
    Reception reception;
    reception.message.msg_iov = target.msg_iov;
    reception.message.msg_iovlen = target.msg_iovlen;
    const ssize_t received = real().recvmsg(fd, &reception.message, flags);
    if (received < 0) {
        return received;
    }
    simulateStamps(reception);
    std::uint8_t bytes[virtual_i210::kMaxFrameBytes];
    SeenFrame frame;
    frame.bytes = bytes;
    frame.length = gather(target, static_cast<std::size_t>(received), bytes);
    frame.softwareNs = virtual_i210::softwareStampNs(reception.message);
    frame.taken = (flags & MSG_PEEK) == 0;
    const std::uint32_t wished = socket.stampFlags.load();
    StampReport report;
    report.withSoftware = (wished & SOF_TIMESTAMPING_SOFTWARE) != 0;
    CardState* card = cardOfInterface(fd, socket, reception.name.sll_ifindex);
    if (card != nullptr && reception.name.sll_pkttype != PACKET_OUTGOING) {
        const auto stamp = receiveStamp(*card, socket, frame);
        if ((wished & SOF_TIMESTAMPING_RAW_HARDWARE) != 0) {
            report.hardwareNs = stamp;
        }
    }
    deliver(reception, report, target);
    return received;
}

/** The frame comes back from the kernel as it was sent, perhaps disguised. */
ssize_t receiveTransmitStamp(int fd, const Descriptor& socket, msghdr& target, int flags) {
    std::uint8_t bytes[virtual_i210::kMaxFrameBytes];
    iovec whole{bytes, sizeof bytes};
    Reception reception;
    reception.message.msg_iov = &whole;
    reception.message.msg_iovlen = 1;
    const ssize_t received = real().recvmsg(fd, &reception.message, flags);
    if (received < 0) {
        return received;
    }
    simulateStamps(reception);
    SeenFrame frame;
    frame.bytes = bytes;
    frame.length = static_cast<std::size_t>(received);
    frame.softwareNs = virtual_i210::softwareStampNs(reception.message);
    virtual_i210::undisguise(bytes, frame.length);
    const std::uint32_t wished = socket.stampFlags.load();
    const auto stamp = transmitStamp(socket, frame);
    StampReport report;
    report.withSoftware = (wished & SOF_TIMESTAMPING_SOFTWARE) != 0 && !stamp;
    if ((wished & SOF_TIMESTAMPING_RAW_HARDWARE) != 0) {
        report.hardwareNs = stamp;
    }
    deliver(reception, report, target);
    const bool stampOnly = (wished & SOF_TIMESTAMPING_OPT_TSONLY) != 0;
    const std::size_t length = stampOnly ? 0 : frame.length;
    const std::size_t delivered = scatter(bytes, length, target);
    target.msg_flags |= delivered < length ? MSG_TRUNC : 0;
    return static_cast<ssize_t>(delivered);
}

ssize_t receiveOnPacketSocket(int fd, Descriptor& socket, msghdr& target, int flags) {
    return (flags & MSG_ERRQUEUE) != 0 ? receiveTransmitStamp(fd, socket, target, flags)
                                       : receiveFrame(fd, socket, target, flags);
}

ssize_t receiveBytes(int fd, Descriptor& socket, void* data, std::size_t length, int flags,
                     sockaddr* name, socklen_t* nameLength) {
    iovec part{data, length};
    msghdr message{};
    message.msg_name = nameLength == nullptr ? nullptr : name;
    message.msg_namelen = message.msg_name == nullptr ? 0 : *nameLength;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t received = receiveOnPacketSocket(fd, socket, message, flags);
    if (received >= 0 && message.msg_name != nullptr && nameLength != nullptr) {
        *nameLength = message.msg_namelen;
    }
    return received;
}

/** The call as it was made; in a simulated run, one that lets others run while it waits. */
template <typename Call>
ssize_t receive(int fd, int flags, Call call) {
    return virtual_i210::conducting() == nullptr
               ? call(flags)
               : virtual_i210::receiveInTurn(fd, flags, [&] { return call(flags | MSG_DONTWAIT); });
}

/** A read has no flag that keeps it from waiting. */
ssize_t readInTurn(int fd, void* data, std::size_t length) {
    if (fd < 0 || length == 0) {
        return real().read(fd, data, length);
    }
    return virtual_i210::receiveInTurn(fd, 0, [=] {
        constexpr timespec kNoTime = {0, 0};
        pollfd entry = {fd, POLLIN, 0};
        const bool ready = virtual_i210::realWaits().ppoll(&entry, 1, &kNoTime, nullptr) != 0;
        return ready ? real().read(fd, data, length) : virtual_i210::failWith(EAGAIN);
    });
}

}  // namespace

VIRTUAL_I210_EXPORT ssize_t recvmsg(int fd, msghdr* message, int flags) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return receive(fd, flags, [=](int callFlags) {
        if (socket != nullptr) {
            return receiveOnPacketSocket(fd, *socket, *message, callFlags);
        }
        const ssize_t received = real().recvmsg(fd, message, callFlags);
        if (received >= 0 && virtual_i210::timeIsSimulated()) {
            virtual_i210::simulateKernelStamps(*message, virtual_i210::realtimeNowNs());
        }
        return received;
    });
}

VIRTUAL_I210_EXPORT ssize_t recvfrom(int fd, void* data, size_t length, int flags, sockaddr* name,
                                     socklen_t* nameLength) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return receive(fd, flags, [=](int callFlags) {
        return socket != nullptr
                   ? receiveBytes(fd, *socket, data, length, callFlags, name, nameLength)
                   : real().recvfrom(fd, data, length, callFlags, name, nameLength);
    });
}

VIRTUAL_I210_EXPORT ssize_t recv(int fd, void* data, size_t length, int flags) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return receive(fd, flags, [=](int callFlags) {
        return socket != nullptr
                   ? receiveBytes(fd, *socket, data, length, callFlags, nullptr, nullptr)
                   : real().recv(fd, data, length, callFlags);
    });
}

VIRTUAL_I210_EXPORT ssize_t read(int fd, void* data, size_t length) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    if (socket != nullptr) {
        return recv(fd, data, length, 0);
    }
    return virtual_i210::conducting() == nullptr ? real().read(fd, data, length)
                                                 : readInTurn(fd, data, length);
}

/** What programs call that were compiled with checks on the size of the buffer. */
VIRTUAL_I210_EXPORT ssize_t __recv_chk(int fd, void* data, size_t length, size_t /*size*/,
                                       int flags) {
    return recv(fd, data, length, flags);
}

VIRTUAL_I210_EXPORT ssize_t __recvfrom_chk(int fd, void* data, size_t length, size_t /*size*/,
                                           int flags, sockaddr* name, socklen_t* nameLength) {
    return recvfrom(fd, data, length, flags, name, nameLength);
}

VIRTUAL_I210_EXPORT ssize_t __read_chk(int fd, void* data, size_t length, size_t /*size*/) {
    return read(fd, data, length);
}

/** One message at a time, so that each has its stamps. */
VIRTUAL_I210_EXPORT int recvmmsg(int fd, mmsghdr* messages, unsigned count, int flags,
                                 timespec* duration) {
    if (virtual_i210::conducting() == nullptr &&
        descriptorOf(fd, DescriptorKind::kPacketSocket) == nullptr) {
        return real().recvmmsg(fd, messages, count, flags, duration);
    }
    for (unsigned i = 0; i < count; ++i) {
        const bool later = i > 0 && (flags & MSG_WAITFORONE) != 0;
        const int callFlags = (flags & ~MSG_WAITFORONE) | (later ? MSG_DONTWAIT : 0);
        const ssize_t received = recvmsg(fd, &messages[i].msg_hdr, callFlags);
        if (received < 0) {
            return i > 0 ? static_cast<int>(i) : -1;
        }
        messages[i].msg_len = static_cast<unsigned>(received);
    }
    return static_cast<int>(count);
}
