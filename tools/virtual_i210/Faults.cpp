#include "tools/virtual_i210/Faults.h"

namespace virtual_i210 {

const std::map<std::string, Fault>& faultsByName() {
    static const std::map<std::string, Fault> faults = {
        {"stamp-lost", Fault::kTxTimestampLost},
        {"stamp-late", Fault::kTxTimestampLate},
        {"drop", Fault::kFrameDropped},
        {"duplicate", Fault::kFrameDuplicated},
        {"reorder", Fault::kFrameReordered},
        {"corrupt", Fault::kFrameCorrupted},
        {"rx-stamp-lost", Fault::kRxTimestampLost},
    };
    return faults;
}

void FaultBoard::order(const FaultOrder& order) {
    Standing& standing = standings[static_cast<std::size_t>(order.fault)];
    standing.remaining.store(0, std::memory_order_release);
    standing.messageType.store(order.messageType, std::memory_order_relaxed);
    standing.lateNs.store(order.lateNs, std::memory_order_relaxed);
    standing.byte.store(order.byte, std::memory_order_relaxed);
    standing.bit.store(order.bit, std::memory_order_relaxed);
    standing.remaining.store(order.count, std::memory_order_release);
}

void FaultBoard::clear() {
    for (Standing& standing : standings) {
        standing.remaining.store(0, std::memory_order_release);
    }
    linkDown.store(0, std::memory_order_release);
    phcHidden.store(0, std::memory_order_release);
    hwtstampErrno.store(0, std::memory_order_release);
    ethtoolErrno.store(0, std::memory_order_release);
}

std::optional<FaultOrder> FaultBoard::take(Fault fault, unsigned messageType) {
    Standing& standing = standings[static_cast<std::size_t>(fault)];
    std::uint32_t remaining = standing.remaining.load(std::memory_order_acquire);
    while (remaining != 0) {
        FaultOrder order;
        order.fault = fault;
        order.messageType = standing.messageType.load(std::memory_order_relaxed);
        order.lateNs = standing.lateNs.load(std::memory_order_relaxed);
        order.byte = standing.byte.load(std::memory_order_relaxed);
        order.bit = standing.bit.load(std::memory_order_relaxed);
        if (order.messageType != kAnyMessageType && order.messageType != messageType) {
            return std::nullopt;
        }
        const std::uint32_t left = remaining == kUntilCleared ? remaining : remaining - 1;
        if (standing.remaining.compare_exchange_weak(remaining, left)) {
            return order;
        }
    }
    return std::nullopt;
}

std::uint32_t FaultBoard::remaining(Fault fault) const {
    return standings[static_cast<std::size_t>(fault)].remaining.load(std::memory_order_acquire);
}

}  // namespace virtual_i210
