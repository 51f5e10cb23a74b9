#include "autosar/SubTlvAttach.h"

#include <algorithm>
#include <iterator>

#include "autosar/TlvCrc.h"

namespace {

constexpr unsigned int kSecured = 1;
constexpr unsigned int kNotSecured = 2;
constexpr unsigned int kAutosarSubType = 0x605676;
constexpr unsigned int kOrganizationFieldsSize = 6;
constexpr unsigned int kFollowUpValueFieldsSize = 22;
constexpr unsigned int kTlvHeadSize = 4;
constexpr unsigned int kSubTlvHeadSize = 2;
constexpr unsigned char kStatusSyncToGateway = 0x04;
constexpr unsigned int kOfsContentSize = 16;

template <int Bytes>
unsigned char* put(unsigned char* at, unsigned int value) {
    wire::storeBigEndian<Bytes>(at, value);
    return at + Bytes;
}

/** Content bytes and their CRC, which an unsecured form leaves 0. */
unsigned char* putContent(unsigned char* at, const unsigned char* content, unsigned int length,
                          bool secured, const TSynInstanceConfig& cfg,
                          const unsigned char* followUp) {
    at = std::copy_n(content, length, at);
    return put<1>(at, secured ? bytewiseCrc(cfg, content, length, dataIdOf(cfg, followUp)) : 0U);
}

unsigned char* putTime(unsigned char* at, const TSynInstanceConfig& cfg,
                       const unsigned char* followUp) {
    const unsigned char flags = cfg.CrcTimeFlags;
    at = put<1>(at, flags);
    at = put<1>(at, timeCrc0(cfg, flags, followUp));
    return put<1>(at, timeCrc1(cfg, flags, followUp));
}

/** The secured form tells only whether the gateway bit is set, the other carries the whole byte. */
unsigned char statusByte(unsigned char timeBaseStatus, bool secured) {
    if (!secured) {
        return timeBaseStatus;
    }
    return (timeBaseStatus & kStatusSyncToGateway) != 0 ? 1 : 0;
}

/** Of an AUTOSAR TLV, its lengthField. */
unsigned int paddedValueSize(unsigned int mask) {
    const unsigned int size = kOrganizationFieldsSize + subTlvSize(mask);
    return size + autosarPadding(size);
}

}  // namespace

unsigned int (*autosarPadding)(unsigned int valueSize) = padNothing;

unsigned int padNothing(unsigned int /*valueSize*/) {
    return 0;
}

unsigned int subTlvMask(const TSynInstanceConfig& cfg) {
    struct Wish {
        unsigned int selector, form;
        SubTlvBit bit;
    };
    const Wish wishes[] = {{cfg.timeSubTlv, kSecured, kTimeSecuredBit},
                           {cfg.statusSubTlv, kSecured, kStatusSecuredBit},
                           {cfg.statusSubTlv, kNotSecured, kStatusNotSecuredBit},
                           {cfg.userDataSubTlv, kSecured, kUserDataSecuredBit},
                           {cfg.userDataSubTlv, kNotSecured, kUserDataNotSecuredBit}};
    unsigned int mask = 0;
    for (const Wish& wish : wishes) {
        if (wish.selector == wish.form) {
            mask |= wish.bit;
        }
    }
    return mask;
}

unsigned char* putFollowUpTlv(unsigned char* at) {
    at = put<2>(at, wire::kTlvOrganizationExtension);
    at = put<2>(at, wire::kFollowUpTlvLength);
    at = put<3>(at, wire::kOrganizationIeee8021);
    at = put<3>(at, 1);
    return at + kFollowUpValueFieldsSize;
}

unsigned char* putAutosarHead(unsigned char* at, unsigned int mask) {
    at = put<2>(at, wire::kTlvOrganizationExtension);
    at = put<2>(at, paddedValueSize(mask));
    at = put<3>(at, wire::kOrganizationAutosar);
    return put<3>(at, kAutosarSubType);
}

unsigned char* putSubTlv(unsigned char* at, const SubTlvKind& kind, const InstanceBlock& block,
                         const unsigned char* followUp) {
    const TSynInstanceConfig& cfg = block.cfg;
    at = put<1>(at, static_cast<unsigned int>(kind.type));
    at = put<1>(at, kind.size - kSubTlvHeadSize);
    switch (kind.type) {
    case kTimeSecured:
        return putTime(at, cfg, followUp);
    case kStatusSecured:
    case kStatusNotSecured: {
        const bool secured = kind.type == kStatusSecured;
        const unsigned char status = statusByte(block.timeBaseStatus, secured);
        return putContent(at, &status, 1, secured, cfg, followUp);
    }
    case kUserDataSecured:
    case kUserDataNotSecured: {
        const unsigned char content[] = {block.userDataLength, block.userBytes[0],
                                         block.userBytes[1], block.userBytes[2]};
        return putContent(at, content, sizeof content, kind.type == kUserDataSecured, cfg,
                          followUp);
    }
    default: {
        // An offset time base, which this system does not keep: all fields zero.
        const unsigned char content[kOfsContentSize] = {};
        return putContent(at, content, sizeof content, kind.type == kOfsSecured, cfg, followUp);
    }
    }
}

void attachSubTlvs(unsigned char* followUp, const InstanceBlock& block, unsigned int mask) {
    if (mask == 0) {
        return;
    }
    unsigned char* at = putAutosarHead(followUp + wire::kAutosarTlv, mask);
    // Before the sub-TLVs, whose CRCs may cover it.
    wire::store16(followUp + wire::kMessageLength,
                  wire::kAutosarTlv + kTlvHeadSize + paddedValueSize(mask));
    for (const SubTlvKind& kind : kSubTlvKinds) {
        if ((mask & kind.bit) != 0) {
            at = putSubTlv(at, kind, block, followUp);
        }
    }
}
