#include "tools/virtual_i210/Frame.h"

#include <algorithm>

#include "tools/virtual_i210/simulated/Random.h"

namespace virtual_i210 {

namespace {

constexpr std::size_t kAddressBytes = 12;
constexpr std::size_t kSourceAddressOffset = 6;
constexpr std::size_t kTagBytes = 4;
constexpr std::size_t kPtpHeaderBytes = 34;
constexpr std::size_t kMessageLengthOffset = 2;
constexpr std::size_t kSequenceIdOffset = 30;

unsigned load16(const std::uint8_t* bytes) {
    return static_cast<unsigned>(bytes[0]) << 8 | bytes[1];
}

bool isVlanTag(unsigned etherType) {
    return etherType == 0x8100 || etherType == 0x88A8;
}

/** Offset of the EtherType behind the tags, or `length` when the frame ends before it. */
std::size_t findEtherType(const std::uint8_t* frame, std::size_t length) {
    std::size_t offset = kAddressBytes;
    while (offset + 2 <= length && isVlanTag(load16(frame + offset))) {
        offset += kTagBytes;
    }
    return offset + 2 <= length ? offset : length;
}

void store16(std::uint8_t* bytes, unsigned value) {
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

std::uint64_t hashBytes(std::uint64_t hash, const std::uint8_t* bytes, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        hash = (hash ^ bytes[i]) * 0x100000001B3u;
    }
    return hash;
}

}  // namespace

std::optional<PtpFrame> parsePtpFrame(const std::uint8_t* frame, std::size_t length) {
    const std::size_t etherType = findEtherType(frame, length);
    if (etherType + 2 + kPtpHeaderBytes > length || load16(frame + etherType) != kPtpEtherType) {
        return std::nullopt;
    }
    PtpFrame ptp;
    ptp.etherTypeOffset = etherType;
    ptp.ptpOffset = etherType + 2;
    const std::uint8_t* message = frame + ptp.ptpOffset;
    const std::size_t stated = load16(message + kMessageLengthOffset);
    ptp.ptpLength = std::min(length - ptp.ptpOffset, std::max(stated, kPtpHeaderBytes));
    ptp.messageType = message[0] & 0x0Fu;
    ptp.sequenceId = load16(message + kSequenceIdOffset);
    return ptp;
}

std::uint64_t eventKey(const std::uint8_t* frame, const PtpFrame& ptp) {
    std::uint64_t hash = 0xCBF29CE484222325u;
    hash = hashBytes(hash, frame + kSourceAddressOffset, 6);
    hash = hashBytes(hash, frame + ptp.ptpOffset, ptp.ptpLength);
    return mixBits(hash);
}

void disguise(std::uint8_t* frame, const PtpFrame& ptp) {
    store16(frame + ptp.etherTypeOffset, kDisguiseEtherType);
}

void undisguise(std::uint8_t* frame, std::size_t length) {
    const std::size_t etherType = findEtherType(frame, length);
    if (etherType < length && load16(frame + etherType) == kDisguiseEtherType) {
        store16(frame + etherType, kPtpEtherType);
    }
}

}  // namespace virtual_i210
