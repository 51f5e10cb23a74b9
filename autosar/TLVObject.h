#pragma once

#include "base/Exports.h"
#include "wire/ptpwire.h"

/** Bits of the sub-TLV mask. */
enum SubTlvBit : unsigned char {
    kTimeSecuredBit = 0x01,
    kStatusSecuredBit = 0x02,
    kStatusNotSecuredBit = 0x04,
    kUserDataSecuredBit = 0x08,
    kUserDataNotSecuredBit = 0x10,
    kOfsSecuredBit = 0x20,
    kOfsNotSecuredBit = 0x40
};

/** Type bytes of the sub-TLVs. */
enum SubTlvType : int {
    kTlvHeaders = 0,  ///< not a sub-TLV: the two TLV headers in front of them
    kTimeSecured = 0x28,
    kOfsNotSecured = 0x34,
    kOfsSecured = 0x44,
    kStatusSecured = 0x50,
    kStatusNotSecured = 0x51,
    kUserDataSecured = 0x60,
    kUserDataNotSecured = 0x61
};

/** A sub-TLV's place in the mask, its type and its size on the wire, in sending order. */
struct SubTlvKind {
    unsigned char bit;
    int type;
    unsigned int size;
};

inline constexpr SubTlvKind kSubTlvKinds[] = {
    {kTimeSecuredBit, kTimeSecured, 5},
    {kStatusSecuredBit, kStatusSecured, 4},
    {kStatusNotSecuredBit, kStatusNotSecured, 4},
    {kUserDataSecuredBit, kUserDataSecured, 7},
    {kUserDataNotSecuredBit, kUserDataNotSecured, 7},
    {kOfsSecuredBit, kOfsSecured, 19},
    {kOfsNotSecuredBit, kOfsNotSecured, 19},
};

/** Bytes of all sub-TLVs of a mask. */
constexpr unsigned int subTlvSize(unsigned int mask) {
    unsigned int size = 0;
    for (const SubTlvKind& kind : kSubTlvKinds) {
        size += (mask & kind.bit) != 0 ? kind.size : 0;
    }
    return size;
}

/** A block of TLV bytes, built for sending or holding what was received. */
class ZEB_EXPORT TLVObject {
public:
    /** Builds the headers (type 0, sized by the mask) or one sub-TLV of a filled Follow_Up header
     *  from the configuration and the host's status and user data. */
    ZEB_ENTRY TLVObject(int type, ptpv2hdr_t* followUpHeader, unsigned char mask);
    ZEB_ENTRY TLVObject();
    // Exported, hence not defaulted here. NOLINTNEXTLINE(performance-trivially-destructible)
    ZEB_ENTRY ~TLVObject();
    TLVObject(const TLVObject&) = default;
    TLVObject& operator=(const TLVObject&) = default;

    unsigned char bytes[wire::kMessageBufferSize];
    unsigned int count;  ///< bytes written; for received data the announced count
};

/** CRC-8H2F as the AUTOSAR routine of this name: a first call ignores startValue, a further one
 *  continues from it. With TxCrcMode 0 (or a wrong one, logged) a master gets 0x00, a slave 0xFF.
 */
ZEB_ENTRY unsigned char Crc_CalculateCRC8H2F(unsigned char const* data, unsigned int length,
                                             unsigned char startValue, bool isFirstCall);

/** Mask of the sub-TLVs that the configuration asks for. */
ZEB_ENTRY unsigned int getConfigParameterBlockTLVBitmask();

/** Checks a received AUTOSAR TLV and reports its content into the instance block. Returns 1, or 0
 *  when a CRC is wrong at trace level 0. Throws the const char* "No more data" for truncated data
 *  and, above trace level 0, for a wrong CRC. */
ZEB_ENTRY unsigned int ProcessIncomingAutoSARTLVObjects(TLVObject* tlv, ptpv2hdr_t* followUpHeader);

/** For hosts: a frame that is no Follow_Up is passed on through the two outputs; a Follow_Up is
 *  copied to the address given as destination itself, with 86 at bytes 58 and 59. Returns 0. */
ZEB_ENTRY int SyncFollowUpAttachAutoSARTLV(char* frame, int length, char** destination,
                                           int* newLength);

/** Kept in the interface; does nothing and returns 0. */
ZEB_ENTRY int SyncFollowUpDetachAutoSARTLV(char* frame, int length, char* destination,
                                           int* newLength);
