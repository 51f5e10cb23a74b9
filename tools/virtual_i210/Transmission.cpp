#include "tools/virtual_i210/Transmission.h"

#include <linux/net_tstamp.h>
#include <signal.h>

#include <array>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "tools/virtual_i210/ControlMessages.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/Polling.h"
#include "tools/virtual_i210/RealFunctions.h"

namespace virtual_i210 {

namespace {

using FrameCopy = std::unique_ptr<OutgoingFrame>;

std::mutex heldMutex;

/** Frames that wait for the next one of their card to overtake them. */
std::array<FrameCopy, kMaxCards>& heldFrames() {
    static auto* const frames = new std::array<FrameCopy, kMaxCards>;
    return *frames;
}

/** A copy that outlives the call, on a descriptor of its own; null when there is none left. */
FrameCopy keep(const OutgoingFrame& frame) {
    const int fd = real().fcntl(frame.fd, F_DUPFD_CLOEXEC, 3);
    if (fd < 0) {
        return nullptr;
    }
    auto copy = std::make_unique<OutgoingFrame>(frame);
    copy->fd = fd;
    return copy;
}

/** Hands the bytes to the kernel. It stamps a frame for us only when told so with the frame; a
 *  socket-wide option would also report frames that the card does not stamp. */
ssize_t emit(OutgoingFrame& frame, bool stamped) {
    iovec data{frame.bytes, frame.length};
    msghdr message{};
    message.msg_name = frame.nameLength > 0 ? &frame.name : nullptr;
    message.msg_namelen = frame.nameLength;
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(std::uint32_t))] = {};
    std::uint32_t flags = frame.packetStampFlags;
    flags &= ~static_cast<std::uint32_t>(SOF_TIMESTAMPING_TX_HARDWARE);
    flags |= stamped ? static_cast<std::uint32_t>(SOF_TIMESTAMPING_TX_SOFTWARE) : 0u;
    if (flags != 0) {
        ControlWriter writer(control, sizeof control);
        writer.put(SOL_SOCKET, SO_TIMESTAMPING, &flags, sizeof flags);
        message.msg_control = control;
        message.msg_controllen = writer.used();
    }
    return real().sendmsg(frame.fd, &message, frame.flags);
}

void noteInstant(const OutgoingFrame& frame) {
    if (!frame.ptp.isEvent() && !frame.wantsStamp && !timeIsSimulated()) {
        return;
    }
    SharedState& state = *attachedState();
    SentEvent event;
    event.key = eventKey(frame.bytes, frame.ptp);
    event.card = state.indexOf(*frame.card);
    event.sequenceId = static_cast<std::uint16_t>(frame.ptp.sequenceId);
    event.messageType = static_cast<std::uint8_t>(frame.ptp.messageType);
    event.stamped = frame.wantsStamp;
    event.rawNs = rawNowNs();
    state.events.note(event);
    if (frame.ptp.isEvent()) {
        frame.card->count(Counter::kEventFramesSent);
    }
}

ssize_t emitNoted(OutgoingFrame& frame, bool stamped) {
    noteInstant(frame);
    const ssize_t sent = emit(frame, stamped);
    if (sent >= 0) {
        frameLeft(attachedState()->indexOf(*frame.card), frame.bytes, frame.length);
    }
    return sent;
}

/** The network loses the frame behind the card: its timestamp still comes. */
ssize_t emitStampOnly(OutgoingFrame& frame) {
    frame.card->count(Counter::kFramesSwallowed);
    if (!frame.wantsStamp) {
        return static_cast<ssize_t>(frame.length);
    }
    noteInstant(frame);
    disguise(frame.bytes, frame.ptp);
    const ssize_t sent = emit(frame, true);
    announceFrame(attachedState()->indexOf(*frame.card));
    return sent;
}

void emitLateStamp(FrameCopy frame, std::uint64_t delayNs) {
    std::this_thread::sleep_for(std::chrono::nanoseconds(delayNs));
    disguise(frame->bytes, frame->ptp);
    emit(*frame, true);
    announceFrame(attachedState()->indexOf(*frame->card));
    real().close(frame->fd);
}

void startLateStamp(const OutgoingFrame& frame, std::uint64_t delayNs) {
    FrameCopy copy = keep(frame);
    if (copy == nullptr) {
        return;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread(emitLateStamp, std::move(copy), delayNs).detach();
    } catch (const std::system_error&) {
        frame.card->count(Counter::kFramesSwallowed);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void corrupt(OutgoingFrame& frame, const FaultOrder& order) {
    if (order.byte < frame.ptp.ptpLength) {
        frame.bytes[frame.ptp.ptpOffset + order.byte] ^=
            static_cast<std::uint8_t>(1u << (order.bit & 7u));
    }
}

bool isLinkDown(const CardState& card) {
    const CardState* peer = attachedState()->peerOf(card);
    return card.faults.linkDown.load() != 0 ||
           (peer != nullptr && peer->faults.linkDown.load() != 0);
}

FrameCopy takeHeld(const OutgoingFrame& frame) {
    const std::lock_guard<std::mutex> guard(heldMutex);
    return std::move(heldFrames()[attachedState()->indexOf(*frame.card)]);
}

bool hold(const OutgoingFrame& frame) {
    FrameCopy copy = keep(frame);
    if (copy == nullptr) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(heldMutex);
    heldFrames()[attachedState()->indexOf(*frame.card)] = std::move(copy);
    return true;
}

/** Passes the frame to the network now, its timestamp as ordered. */
ssize_t emitWithStampFaults(OutgoingFrame& frame) {
    FaultBoard& faults = frame.card->faults;
    if (!frame.wantsStamp || faults.take(Fault::kTxTimestampLost, frame.ptp.messageType)) {
        return emitNoted(frame, false);
    }
    const auto late = faults.take(Fault::kTxTimestampLate, frame.ptp.messageType);
    const ssize_t sent = emitNoted(frame, !late);
    if (late && sent >= 0) {
        startLateStamp(frame, late->lateNs);
    }
    return sent;
}

}  // namespace

ssize_t transmit(OutgoingFrame& frame) {
    FaultBoard& faults = frame.card->faults;
    const unsigned type = frame.ptp.messageType;
    frame.card->count(Counter::kPtpFramesSent);
    if (isLinkDown(*frame.card)) {
        frame.card->count(Counter::kFramesSwallowed);
        return static_cast<ssize_t>(frame.length);
    }
    if (const auto order = faults.take(Fault::kFrameCorrupted, type)) {
        corrupt(frame, *order);
    }
    if (faults.take(Fault::kFrameDropped, type)) {
        return emitStampOnly(frame);
    }
    const FrameCopy overtaken = takeHeld(frame);
    if (overtaken == nullptr && faults.take(Fault::kFrameReordered, type) && hold(frame)) {
        return emitStampOnly(frame);
    }
    const ssize_t sent = emitWithStampFaults(frame);
    if (faults.take(Fault::kFrameDuplicated, type)) {
        emitNoted(frame, false);
    }
    if (overtaken != nullptr) {
        emitNoted(*overtaken, false);
        real().close(overtaken->fd);
    }
    return sent;
}

}  // namespace virtual_i210
