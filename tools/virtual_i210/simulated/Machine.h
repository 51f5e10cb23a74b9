#pragma once

#include <cstddef>
#include <cstdint>

namespace virtual_i210 {

/** In all machines of one state. */
constexpr std::size_t kMaxCards = 256;

/** What a simulated machine spends beside what the cards do. */
struct SimulatedCosts {
    std::uint32_t clockNs = 60;     /**< reading a clock */
    std::uint32_t callNs = 1000;    /**< any other system call */
    std::uint32_t wakeNs = 68'000;  /**< from the end of a sleep until the thread runs */
    std::uint32_t notifyNs = 4'000; /**< the same, woken by a frame or another thread */
    std::uint32_t wakeJitterNs = 18'000;
    std::uint32_t loadPercent = 0; /**< of wake-ups that are late, by up to 30 ms */
};

}  // namespace virtual_i210
