#pragma once

#include <cstddef>
#include <cstdint>

namespace tsyn {

/** One Ethernet frame of a capture. The bytes belong to whoever hands it over. */
struct CaptureFrame {
    unsigned long number = 0; /**< from 1, as capture tools count */
    std::uint64_t timeNs = 0;
    const unsigned char* bytes = nullptr;
    std::size_t captured = 0;
    std::size_t onWire = 0; /**< more than captured when a snap length cut the frame */
};

}  // namespace tsyn
