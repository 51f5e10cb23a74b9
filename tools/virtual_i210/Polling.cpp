#include "tools/virtual_i210/Polling.h"

#include <linux/if_packet.h>

#include <array>

#include "tools/virtual_i210/Capture.h"
#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/Frame.h"

namespace virtual_i210 {

namespace {

/** The card that a packet socket is bound to + 1, kEveryCard when it hears all. */
std::uint64_t cardOfSocket(int fd, Descriptor& socket) {
    auto known = static_cast<std::uint32_t>(socket.cardOfInterface.load());
    if (known == 0) {
        sockaddr_ll address{};
        socklen_t length = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
            cardOfInterface(fd, socket, address.sll_ifindex) != nullptr) {
            known = static_cast<std::uint32_t>(socket.cardOfInterface.load());
        }
    }
    return known == 0 ? kEveryCard : known;
}

/** The instant of the frame's sending plus the cable; 0 for a frame that no card sent. */
std::uint64_t visibleNs(const Descriptor& socket, const std::uint8_t* frame, std::size_t length,
                        const CardState& card) {
    const auto ptp = parsePtpFrame(frame, length);
    const auto sent =
        ptp ? attachedState()->events.lastOf(eventKey(frame, *ptp), socket.createdRawNs.load())
            : std::nullopt;
    return sent ? sent->rawNs + card.cableNs : 0;
}

}  // namespace

Interest interestIn(int fd) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    return socket != nullptr ? Interest{cardOfSocket(fd, *socket), false} : Interest{0, true};
}

std::uint64_t frameOnItsWayNs(int fd) {
    Descriptor* socket = descriptorOf(fd, DescriptorKind::kPacketSocket);
    const std::uint64_t card = socket == nullptr ? 0 : cardOfSocket(fd, *socket);
    const SharedState& state = *attachedState();
    const std::uint64_t now = rawNowNs();
    // Nearly always everything that was sent has arrived.
    if (card == 0 || card == kEveryCard ||
        state.conductor.lastVisibleNs(static_cast<std::uint32_t>(card) - 1) <= now) {
        return 0;
    }
    std::array<std::uint8_t, kMaxFrameBytes> frame;
    const int savedErrno = errno;
    const ssize_t length = real().recv(fd, frame.data(), frame.size(), MSG_PEEK | MSG_DONTWAIT);
    errno = savedErrno;
    if (length <= 0) {
        return 0;
    }
    const std::uint64_t visible =
        visibleNs(*socket, frame.data(), static_cast<std::size_t>(length), state.cards[card - 1]);
    return visible > now ? visible : 0;
}

std::uint64_t receiveEndNs(int fd, int flags) {
    const int savedErrno = errno;
    const bool waits = (flags & (MSG_DONTWAIT | MSG_ERRQUEUE)) == 0 &&
                       (real().fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
    timeval limit{};
    socklen_t length = sizeof limit;
    const bool limited = waits &&
                         real().getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length) == 0 &&
                         (limit.tv_sec != 0 || limit.tv_usec != 0);
    errno = savedErrno;
    if (!waits) {
        return rawNowNs();
    }
    return limited ? rawNowNs() + static_cast<std::uint64_t>(limit.tv_sec) * kNsPerSecond +
                         static_cast<std::uint64_t>(limit.tv_usec) * 1000
                   : kNever;
}

void announceFrame(std::uint32_t card) {
    Conductor* conductor = conducting();
    if (conductor == nullptr) {
        return;
    }
    const SharedState& state = *attachedState();
    std::array<std::uint64_t, kMaxCards> atNs;
    const std::uint64_t now = rawNowNs();
    for (std::uint32_t i = 0; i < state.cardCount; ++i) {
        // The sender's own sockets meet the transmit timestamp.
        atNs[i] = i == card                                     ? now
                  : state.cards[i].net == state.cards[card].net ? now + state.cards[i].cableNs
                                                                : kNever;
    }
    conductor->framesVisible(atNs.data(), state.cardCount);
}

void frameLeft(std::uint32_t card, const std::uint8_t* frame, std::size_t length) {
    if (conducting() == nullptr) {
        return;
    }
    const SharedState& state = *attachedState();
    if (state.capturePath[0] != '\0') {
        captureFrame(state, card, static_cast<std::uint64_t>(realtimeNowNs()), frame, length);
    }
    announceFrame(card);
}

}  // namespace virtual_i210
