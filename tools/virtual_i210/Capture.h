#pragma once

#include <cstddef>
#include <cstdint>

namespace virtual_i210 {

struct SharedState;

/** Begins the capture file of a simulated run: pcapng with one interface a card and nanoseconds.
 *  Throws ConfigError. */
void createCapture(const SharedState& state);

/** Appends a frame as it leaves a card at an instant of the simulated system clock. Of the thread
 *  whose turn it is. */
void captureFrame(const SharedState& state, std::uint32_t card, std::uint64_t realtimeNs,
                  const std::uint8_t* frame, std::size_t length);

}  // namespace virtual_i210
