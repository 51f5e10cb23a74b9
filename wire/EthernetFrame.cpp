#include "wire/EthernetFrame.h"

#include <algorithm>
#include <cstring>

#include "wire/ptpwire.h"

namespace ethernet {

int writeHeader(unsigned char* frame, const unsigned char* destination, const unsigned char* source,
                const VlanTag& tag) {
    unsigned char* at = std::copy_n(destination, kMacSize, frame);
    at = std::copy_n(source, kMacSize, at);
    if (tag.isTagged()) {
        wire::store16(at, kVlanProtocol);
        wire::store16(at + 2, (static_cast<unsigned int>(tag.priority) << 13) |
                                  static_cast<unsigned int>(tag.id));
        at += kVlanTagSize;
    }
    wire::store16(at, kPtpProtocol);
    return tag.headerSize();
}

bool isForeignVlan(const unsigned char* frame, const VlanTag& tag) {
    const unsigned char* const at = frame + kMacAddressesSize;
    return wire::load16(at) != kVlanProtocol ||
           static_cast<int>(wire::load16(at + 2) & kVlanIdMask) != tag.id;
}

bool isFrom(const unsigned char* frame, const unsigned char* address) {
    return std::equal(address, address + kMacSize, frame + kMacSize);
}

int putTagBack(unsigned char* frame, int length, unsigned int protocol, unsigned int tci) {
    if (length < kMacAddressesSize) {
        return length;
    }
    unsigned char* const at = frame + kMacAddressesSize;
    std::memmove(at + kVlanTagSize, at, static_cast<std::size_t>(length - kMacAddressesSize));
    wire::store16(at, protocol);
    wire::store16(at + 2, tci);
    return length + kVlanTagSize;
}

}  // namespace ethernet
