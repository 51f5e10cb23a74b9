#include "profile/Stamps.h"

#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/Monotonic.h"
#include "platform/CardSteps.h"
#include "platform/Descriptors.h"
#include "profile/Quality.h"
#include "wire/EthernetFrame.h"
#include "wire/ptpwire.h"

namespace {

constexpr unsigned long long kLongestWaitNs = 10ULL * kNsPerMillisecond;
/** A card hands its stamp over some ten microseconds after the frame: a sleep would take longer. */
constexpr int kTriesWithoutSleep = 8;
constexpr unsigned char kFirstGeneralMessage = 8;
/** What sendto carries at most, and a tag. */
constexpr int kLargestFrame = ethernet::kTaggedHeaderSize + 2048;
constexpr std::size_t kControlSize = 512;

/** The sending side of one thread: its socket and the message that it waits for. */
struct Sender {
    Sender() = default;
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    ~Sender() { closeSocket(); }

    void closeSocket() {
        if (socket > 0) {
            close(socket);
        }
        socket = -1;
    }

    int socket = -1;
    int interfaceIndex = 0;
    int messageLength = 0;  ///< 0: no stamp is waited for
    unsigned char message[kLargestFrame];
};

thread_local Sender sender;

bool stampWith(int socket, int flags) {
    return setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPING, &flags, sizeof flags) == 0;
}

/** Opens the thread's socket; again for an interface that was made anew. Protocol 0 keeps received
 *  frames away from it. */
void openFor(const UInterface& port) {
    if (sender.socket > 0 && sender.interfaceIndex == port.index) {
        return;
    }
    sender.closeSocket();
    stampWith(port.s, SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE);
    const int opened = awayFromZero(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    if (opened < 0) {
        return;
    }
    sockaddr_ll address = gptpAddressOn(port.index);
    address.sll_protocol = 0;
    // Unbound, it still sends by the address of each frame; its stamps are then missed and counted.
    (void)bind(opened, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    stampWith(opened, SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE);
    sender.socket = opened;
    sender.interfaceIndex = port.index;
}

int sendBy(int socket, const UInterface& port, const unsigned char* frame, int length) {
    const sockaddr_ll address = gptpAddressOn(port.index);
    ssize_t sent = -1;
    do {
        sent = ::sendto(socket, frame, static_cast<std::size_t>(length), 0,
                        reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (sent < 0 && errno == EINTR);
    return static_cast<int>(sent);
}

enum class Looped { kNothing, kStray, kOurs };

/** Takes one frame that came back, with its stamp. */
Looped takeLooped(unsigned long long& txNs) {
    unsigned char frame[kLargestFrame];
    alignas(cmsghdr) unsigned char control[kControlSize];
    iovec block{frame, sizeof frame};
    msghdr header{};
    header.msg_iov = &block;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t length = recvmsg(sender.socket, &header, MSG_ERRQUEUE | MSG_DONTWAIT);
    if (length < 0) {
        return Looped::kNothing;
    }
    txNs = hardwareTimeOf(header);
    return stamps::isSameFrame(frame, static_cast<int>(length), sender.message,
                               sender.messageLength)
               ? Looped::kOurs
               : Looped::kStray;
}

/** Sleeps until something came back or the deadline has passed; false then. */
bool waitForLooped(unsigned long long deadlineNs) {
    const unsigned long long nowNs = monotonicNs();
    if (nowNs >= deadlineNs) {
        return false;
    }
    pollfd descriptor{sender.socket, 0, 0};
    const auto leftMs =
        static_cast<int>((deadlineNs - nowNs + kNsPerMillisecond - 1) / kNsPerMillisecond);
    poll(&descriptor, 1, leftMs);
    return true;
}

}  // namespace

bool stamps::isSameFrame(const unsigned char* looped, int loopedLength,
                         const unsigned char* message, int messageLength) {
    // Only the message is compared: a tag may have been moved out of the header on the way.
    return messageLength > 0 && loopedLength >= messageLength &&
           std::memcmp(looped + (loopedLength - messageLength), message,
                       static_cast<std::size_t>(messageLength)) == 0;
}

int stamps::sendFrame(const UInterface& port, unsigned char* frame, int length, int headerSize) {
    openFor(port);
    const int messageLength = length - headerSize;
    const bool isEvent = messageLength > 0 && messageLength <= kLargestFrame &&
                         wire::messageType(frame + headerSize) < kFirstGeneralMessage;
    sender.messageLength = 0;
    if (!isEvent || sender.socket < 0) {
        return sendBy(port.s, port, frame, length);
    }
    // A copy first: the stamp may be there before sendto returns.
    std::memcpy(sender.message, frame + headerSize, static_cast<std::size_t>(messageLength));
    const int sent = sendBy(sender.socket, port, frame, length);
    sender.messageLength = sent < 0 ? 0 : messageLength;
    return sent;
}

unsigned long long stamps::transmitTimestamp(int /*socket*/) {
    if (sender.messageLength == 0) {
        return 0;
    }
    const unsigned long long deadlineNs = monotonicNs() + kLongestWaitNs;
    int tries = 0;
    unsigned long long txNs = 0;
    for (;;) {
        const Looped looped = takeLooped(txNs);
        if (looped == Looped::kOurs) {
            break;
        }
        if (looped == Looped::kStray) {
            quality::countStrayStamp();
            continue;
        }
        if (++tries > kTriesWithoutSleep && !waitForLooped(deadlineNs)) {
            txNs = 0;
            break;
        }
    }
    sender.messageLength = 0;
    return txNs;
}
