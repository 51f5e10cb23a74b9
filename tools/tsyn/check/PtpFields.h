#pragma once

#include <cstddef>
#include <cstdint>

/** Where the fields of a PTP message stand, from its first byte.
 *
 *  A second, independent description of what the library sends: a fault in the library's tables
 *  must not hide itself from the check, so that nothing here comes from the library. */
namespace tsyn::ptp {

inline constexpr std::size_t kHeaderSize = 34;
inline constexpr std::size_t kClockIdentitySize = 8;
inline constexpr std::size_t kPortIdentitySize = 10;

inline constexpr std::size_t kMessageTypeAt = 0;
inline constexpr std::size_t kVersionAt = 1;
inline constexpr std::size_t kMessageLengthAt = 2;
inline constexpr std::size_t kDomainNumberAt = 4;
inline constexpr std::size_t kCorrectionFieldAt = 8;
inline constexpr std::size_t kSourcePortIdentityAt = 20;
inline constexpr std::size_t kSourcePortNumberAt = kSourcePortIdentityAt + kClockIdentitySize;
inline constexpr std::size_t kSequenceIdAt = 30;
inline constexpr std::size_t kPreciseOriginTimestampAt = 34;
inline constexpr std::size_t kRequestingPortIdentityAt = 44; /**< of a response to a request */
inline constexpr std::size_t kFollowUpTlvAt = 44;

inline constexpr std::size_t kPdelayResponseSize = 54;

enum MessageType : unsigned int {
    kSync = 0x0,
    kPdelayReq = 0x2,
    kPdelayResp = 0x3,
    kFollowUp = 0x8,
    kPdelayRespFollowUp = 0xA,
    kAnnounce = 0xB,
    kSignaling = 0xC,
    kManagement = 0xD,
};

/** The big-endian number in these bytes, eight at most. */
constexpr std::uint64_t number(const unsigned char* bytes, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value * 256 + bytes[i];
    }
    return value;
}

constexpr unsigned int number16(const unsigned char* bytes) {
    return static_cast<unsigned int>(number(bytes, 2));
}

constexpr unsigned int number24(const unsigned char* bytes) {
    return static_cast<unsigned int>(number(bytes, 3));
}

constexpr unsigned int messageType(const unsigned char* message) {
    return message[kMessageTypeAt] & 0x0FU;
}

constexpr unsigned int version(const unsigned char* message) {
    return message[kVersionAt] & 0x0FU;
}

constexpr unsigned int messageLength(const unsigned char* message) {
    return number16(message + kMessageLengthAt);
}

constexpr unsigned int sequenceId(const unsigned char* message) {
    return number16(message + kSequenceIdAt);
}

}  // namespace tsyn::ptp
