#pragma once

#include <cstdint>

#include "base/ptptime.h"

/** The 34-byte common header as it stands on the wire. Multi-byte fields are big-endian and only
 *  reached through the accessors below. */
struct ptpv2hdr_t {
    unsigned char octets[34];
};

static_assert(sizeof(ptpv2hdr_t) == 34, "the common header is 34 bytes");

namespace wire {

inline constexpr int kMessageBufferSize = 256;
inline constexpr unsigned char kTransportSpecific = 0x10;
inline constexpr unsigned char kVersionPtp = 2;
inline constexpr unsigned char kMessageTypeMask = 0x0F;
inline constexpr unsigned char kVersionMask = 0x0F;
inline constexpr unsigned char kTwoStepFlag = 0x02;
inline constexpr unsigned char kPtpTimescaleFlag = 0x08;
inline constexpr unsigned char kLogIntervalUnknown = 0x7F;
inline constexpr unsigned int kMaxDomain = 15;

enum MessageType : unsigned char {
    kSync = 0,
    kPdelayReq = 2,
    kPdelayResp = 3,
    kFollowUp = 8,
    kPdelayRespFollowUp = 10,
    kAnnounce = 11
};

/** Offsets from the first byte of the PTP header. */
enum Offset {
    kTransportAndType = 0,
    kVersion = 1,
    kMessageLength = 2,
    kDomainNumber = 4,
    kFlags = 6,
    kCorrectionField = 8,
    kSourceClockIdentity = 20,
    kSourcePortNumber = 28,
    kSequenceId = 30,
    kControl = 32,
    kLogMessageInterval = 33,
    kTimestamp = 34,
    kRequestingClockIdentity = 44,
    kRequestingPortNumber = 52,
    kFollowUpTlv = 44,
    kFollowUpOrganizationId = 48,
    kFollowUpOrganizationSubType = 51,
    kCumulativeScaledRateOffset = 54,
    kGmTimeBaseIndicator = 58,
    kLastGmPhaseChange = 60,
    kScaledLastGmFreqChange = 72,
    kAutosarTlv = 76,
    kGrandmasterPriority1 = 47,
    kClockClass = 48,
    kClockAccuracy = 49,
    kOffsetScaledLogVariance = 50,
    kGrandmasterPriority2 = 52,
    kGrandmasterIdentity = 53,
    kTimeSource = 63,
    kPathTraceTlv = 64,
    kPathTraceLength = 66,
    kPathSequence = 68
};

inline constexpr int kClockIdentitySize = 8;
inline constexpr int kPortIdentitySize = 10;
inline constexpr int kSyncLength = 44;
inline constexpr int kPdelayLength = 54;
inline constexpr int kFollowUpLength = 76;
inline constexpr int kAnnounceLength = 76;

inline constexpr unsigned int kTlvOrganizationExtension = 0x0003;
inline constexpr unsigned int kTlvPathTrace = 0x0008;
inline constexpr unsigned int kFollowUpTlvLength = 28;
inline constexpr unsigned int kOrganizationIeee8021 = 0x0080C2;
inline constexpr unsigned int kOrganizationAutosar = 0x1A75FB;

template <int Bytes>
constexpr std::uint64_t loadBigEndian(const unsigned char* at) {
    std::uint64_t value = 0;
    for (int i = 0; i < Bytes; ++i) {
        value = (value << 8) | at[i];
    }
    return value;
}

template <int Bytes>
constexpr void storeBigEndian(unsigned char* at, std::uint64_t value) {
    for (int i = Bytes - 1; i >= 0; --i) {
        at[i] = static_cast<unsigned char>(value);
        value >>= 8;
    }
}

constexpr unsigned int load16(const unsigned char* at) {
    return static_cast<unsigned int>(loadBigEndian<2>(at));
}

constexpr unsigned int load32(const unsigned char* at) {
    return static_cast<unsigned int>(loadBigEndian<4>(at));
}

constexpr unsigned long long load64(const unsigned char* at) {
    return loadBigEndian<8>(at);
}

constexpr void store16(unsigned char* at, unsigned int value) {
    storeBigEndian<2>(at, value);
}

/** 48-bit seconds and 32-bit nanoseconds, at any offset. */
constexpr ptp_time_t loadTimestamp(const unsigned char* at) {
    return {loadBigEndian<6>(at), static_cast<unsigned int>(loadBigEndian<4>(at + 6))};
}

constexpr void storeTimestamp(unsigned char* at, const ptp_time_t& time) {
    storeBigEndian<6>(at, time.seconds);
    storeBigEndian<4>(at + 6, time.nanoseconds);
}

constexpr unsigned int messageType(const unsigned char* message) {
    return message[kTransportAndType] & kMessageTypeMask;
}

constexpr unsigned int messageLength(const unsigned char* message) {
    return load16(message + kMessageLength);
}

constexpr unsigned int sequenceId(const unsigned char* message) {
    return load16(message + kSequenceId);
}

}  // namespace wire
