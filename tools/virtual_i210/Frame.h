#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace virtual_i210 {

constexpr std::uint16_t kPtpEtherType = 0x88F7;
/** Carries a transmit timestamp for a frame that must not reach a PTP receiver now. */
constexpr std::uint16_t kDisguiseEtherType = 0x88B6;
constexpr std::size_t kMaxFrameBytes = 2048;

/** Where the PTP message stands in an Ethernet frame, and what it is. */
struct PtpFrame {
    std::size_t etherTypeOffset = 0;
    std::size_t ptpOffset = 0;
    std::size_t ptpLength = 0;
    unsigned messageType = 0;
    unsigned sequenceId = 0;

    bool isEvent() const { return (messageType & 8u) == 0; }
};

/** Finds the PTP message behind any VLAN tags; nothing for other or cut frames. */
std::optional<PtpFrame> parsePtpFrame(const std::uint8_t* frame, std::size_t length);

/** Names an event frame by source address and message. The VLAN tag and the EtherType stay out: the
 *  kernel takes the tag off before a receiver sees the frame. */
std::uint64_t eventKey(const std::uint8_t* frame, const PtpFrame& ptp);

void disguise(std::uint8_t* frame, const PtpFrame& ptp);

/** Gives a disguised frame its own EtherType back; other frames stay as they are. */
void undisguise(std::uint8_t* frame, std::size_t length);

}  // namespace virtual_i210
