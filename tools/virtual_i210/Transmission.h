#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/Frame.h"

namespace virtual_i210 {

/** A PTP frame on its way to the card, with everything its sending needs after the call is over. */
struct OutgoingFrame {
    int fd = -1;
    int flags = 0;
    CardState* card = nullptr;
    PtpFrame ptp;
    bool wantsStamp = false;
    std::uint32_t packetStampFlags = 0; /**< asked for with the frame, not with the socket */
    sockaddr_storage name;
    socklen_t nameLength = 0;
    std::size_t length = 0;
    std::uint8_t bytes[kMaxFrameBytes];
};

/** Sends the frame as the card's fault orders say. Result and errno are those of sendmsg. */
ssize_t transmit(OutgoingFrame& frame);

}  // namespace virtual_i210
