#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace virtual_i210 {

enum class Fault : std::uint32_t {
    kTxTimestampLost,
    kTxTimestampLate,
    kFrameDropped,
    kFrameDuplicated,
    kFrameReordered,
    kFrameCorrupted,
    kRxTimestampLost, /**< of the next frames that the card receives */
};

constexpr std::size_t kFaultKinds = 7;
/** By the names that orders and scenarios give them. */
const std::map<std::string, Fault>& faultsByName();

constexpr std::uint32_t kUntilCleared = 0xFFFFFFFFu;
constexpr std::uint32_t kAnyMessageType = 0xFFFFFFFFu;

/** What shall go wrong with the next `count` PTP frames that a card sends or receives. */
struct FaultOrder {
    Fault fault = Fault::kTxTimestampLost;
    std::uint32_t count = 1;
    std::uint32_t messageType = kAnyMessageType;
    std::uint64_t lateNs = 0; /**< kTxTimestampLate */
    std::uint32_t byte = 0;   /**< kFrameCorrupted: byte of the PTP message */
    std::uint32_t bit = 0;    /**< kFrameCorrupted: bit of that byte, 0 is the least */
};

/** The standing orders of one card; any process gives them, the sending process carries them
 *  out. */
struct FaultBoard {
    void order(const FaultOrder& order);
    void clear();

    /** Uses up one count when an order of this kind stands for this message type. */
    std::optional<FaultOrder> take(Fault fault, unsigned messageType);
    std::uint32_t remaining(Fault fault) const;

    std::atomic<std::uint32_t> linkDown;
    std::atomic<std::uint32_t> phcHidden;
    std::atomic<std::uint32_t> hwtstampErrno;
    std::atomic<std::uint32_t> ethtoolErrno;

    struct Standing {
        std::atomic<std::uint32_t> remaining;
        std::atomic<std::uint32_t> messageType;
        std::atomic<std::uint64_t> lateNs;
        std::atomic<std::uint32_t> byte;
        std::atomic<std::uint32_t> bit;
    };

    std::array<Standing, kFaultKinds> standings;
};

static_assert(sizeof(FaultBoard) == 16 + kFaultKinds * 24);
static_assert(alignof(FaultBoard) == 8);

}  // namespace virtual_i210
