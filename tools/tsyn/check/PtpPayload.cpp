#include "tools/tsyn/check/PtpPayload.h"

#include "tools/tsyn/check/PtpFields.h"

namespace tsyn {

PtpPayload findPtp(const CaptureFrame& frame) {
    constexpr std::size_t kAddressesSize = 12;
    constexpr std::size_t kEtherTypeSize = 2;
    constexpr std::size_t kTagSize = 4;
    constexpr unsigned int kEtherTypePtp = 0x88F7;
    constexpr unsigned int kEtherTypeVlan = 0x8100;
    constexpr unsigned int kEtherTypeServiceVlan = 0x88A8;
    PtpPayload payload;
    for (std::size_t at = kAddressesSize; at + kEtherTypeSize <= frame.captured; at += kTagSize) {
        const unsigned int etherType = ptp::number16(frame.bytes + at);
        if (etherType == kEtherTypePtp) {
            payload.isPtp = true;
            payload.bytes = frame.bytes + at + kEtherTypeSize;
            payload.size = frame.captured - at - kEtherTypeSize;
            return payload;
        }
        if (etherType != kEtherTypeVlan && etherType != kEtherTypeServiceVlan) {
            return payload;
        }
        payload.vlanTagged = true;
    }
    return payload;
}

}  // namespace tsyn
