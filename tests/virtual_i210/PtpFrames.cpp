#include "tests/virtual_i210/PtpFrames.h"

Bytes ptpFrame(unsigned messageType, unsigned sequenceId, unsigned sourceAddress) {
    Bytes frame = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E,
                   0x02, 0x00, 0x00, 0x00, 0x00, static_cast<std::uint8_t>(sourceAddress),
                   0x88, 0xF7};
    frame.resize(14 + 44);
    frame[14] = static_cast<std::uint8_t>(0x10 | messageType);
    frame[15] = 0x02;
    frame[17] = 44;
    frame[44] = static_cast<std::uint8_t>(sequenceId >> 8);
    frame[45] = static_cast<std::uint8_t>(sequenceId);
    return frame;
}

Bytes taggedPtpFrame(unsigned messageType, unsigned sequenceId, unsigned tci) {
    Bytes frame = ptpFrame(messageType, sequenceId);
    const Bytes tag = {0x81, 0x00, static_cast<std::uint8_t>(tci >> 8),
                       static_cast<std::uint8_t>(tci)};
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}
