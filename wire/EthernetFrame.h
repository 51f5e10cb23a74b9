#pragma once

#include <cstddef>

/** Ethernet framing of PTP messages, untagged or with one IEEE 802.1Q tag. */
namespace ethernet {

inline constexpr int kMacSize = 6;
inline constexpr int kMacAddressesSize = 2 * kMacSize;
inline constexpr int kVlanTagSize = 4;
inline constexpr int kUntaggedHeaderSize = 14;
inline constexpr int kTaggedHeaderSize = kUntaggedHeaderSize + kVlanTagSize;
inline constexpr unsigned int kVlanProtocol = 0x8100;
inline constexpr unsigned int kPtpProtocol = 0x88F7;
inline constexpr unsigned int kVlanIdMask = 0xFFF;

/** Where all gPTP frames go: the bridge group address that no bridge forwards. */
inline constexpr unsigned char kGptpAddress[kMacSize] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};

/** The tag that a port's own frames carry. */
struct VlanTag {
    int id;        ///< negative: untagged
    int priority;  ///< PCP

    bool isTagged() const { return id >= 0; }
    int headerSize() const { return isTagged() ? kTaggedHeaderSize : kUntaggedHeaderSize; }
};

/** Writes the header in front of a payload; frame has room for a tagged header. Returns its size.
 *  An id or priority beyond its field spills into the neighbouring bits, as the configuration's
 *  VLAN id 4096 does. */
int writeHeader(unsigned char* frame, const unsigned char* destination, const unsigned char* source,
                const VlanTag& tag);

/** True when a received frame is not of this VLAN. The frame has at least a tagged header. */
bool isForeignVlan(const unsigned char* frame, const VlanTag& tag);

/** True when the frame was sent from this address. */
bool isFrom(const unsigned char* frame, const unsigned char* address);

/** Puts a tag that the kernel took out of a received frame back behind the addresses. frame has
 *  kVlanTagSize bytes to spare. Returns the new length; a frame too short to have a header stays as
 *  it is. */
int putTagBack(unsigned char* frame, int length, unsigned int protocol, unsigned int tci);

}  // namespace ethernet
