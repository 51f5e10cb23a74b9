#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/virtual_i210/Descriptors.h"

namespace virtual_i210 {

/** A frame that the kernel handed over, and when the kernel saw it (ns of CLOCK_REALTIME). */
struct SeenFrame {
    const std::uint8_t* bytes = nullptr;
    std::size_t length = 0;
    std::optional<std::int64_t> softwareNs;
    bool taken = true; /**< false when it was only looked at and will be given again */
};

/** The card's receive timestamp, as its filter allows. Returns only when the frame can have come
 *  through the cable; nothing when the card does not stamp this frame. */
std::optional<std::int64_t> receiveStamp(CardState& card, Descriptor& socket,
                                         const SeenFrame& frame);

/** The sending card's timestamp of a frame that came back on the error queue; nothing for a frame
 *  that no card was asked to stamp. */
std::optional<std::int64_t> transmitStamp(const Descriptor& socket, const SeenFrame& frame);

}  // namespace virtual_i210
