#include "autosar/TLVObject.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "api/InterfaceDataManager.h"
#include "autosar/TlvCrc.h"
#include "base/DbgLog.h"

namespace {

constexpr const char* kLogSource = log_source::kSubTlvs;
constexpr unsigned int kAutosarSubType = 0x605676;
constexpr unsigned int kOrganizationFieldsSize = 6;
constexpr unsigned int kSubTlvHeadSize = 2;
constexpr int kUnknownTypeLine = 340;
constexpr unsigned char kStatusSyncToGateway = 0x04;
constexpr unsigned int kOfsContentSize = 16;

void put(TLVObject& tlv, int bytes, unsigned int value) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        tlv.bytes[tlv.count++] = static_cast<unsigned char>(value >> shift);
    }
}

void putBytes(TLVObject& tlv, const unsigned char* bytes, unsigned int length) {
    std::copy_n(bytes, length, tlv.bytes + tlv.count);
    tlv.count += length;
}

/** The 802.1AS TLV of a grandmaster that never changes frequency or phase, then the head of the
 *  AUTOSAR TLV. */
void buildHeaders(TLVObject& tlv, unsigned char mask) {
    constexpr unsigned int kValueFieldsSize = 22;
    put(tlv, 2, wire::kTlvOrganizationExtension);
    put(tlv, 2, wire::kFollowUpTlvLength);
    put(tlv, 3, wire::kOrganizationIeee8021);
    put(tlv, 3, 1);
    tlv.count += kValueFieldsSize;
    put(tlv, 2, wire::kTlvOrganizationExtension);
    put(tlv, 2, kOrganizationFieldsSize + subTlvSize(mask));
    put(tlv, 3, wire::kOrganizationAutosar);
    put(tlv, 3, kAutosarSubType);
}

void buildTime(TLVObject& tlv, const InstanceBlock& block, const unsigned char* followUp) {
    const unsigned char flags = block.cfg.CrcTimeFlags;
    const unsigned char dataId = dataIdOf(block.cfg, followUp);
    put(tlv, 1, flags);
    put(tlv, 1, timeCrc0(flags, followUp, dataId));
    put(tlv, 1, timeCrc1(flags, followUp, dataId));
}

void buildStatus(TLVObject& tlv, int type, const InstanceBlock& block,
                 const unsigned char* followUp) {
    // The secured form tells only whether the gateway bit is set, the other carries the whole byte.
    unsigned char status = block.timeBaseStatus;
    unsigned char crc = 0;
    if (type == kStatusSecured) {
        status = (status & kStatusSyncToGateway) != 0 ? 1 : 0;
        crc = bytewiseCrc(&status, 1, dataIdOf(block.cfg, followUp));
    }
    put(tlv, 1, status);
    put(tlv, 1, crc);
}

void buildUserData(TLVObject& tlv, int type, const InstanceBlock& block,
                   const unsigned char* followUp) {
    const unsigned char content[] = {block.userDataLength, block.userBytes[0], block.userBytes[1],
                                     block.userBytes[2]};
    putBytes(tlv, content, sizeof content);
    put(tlv, 1,
        type == kUserDataSecured
            ? bytewiseCrc(content, sizeof content, dataIdOf(block.cfg, followUp))
            : 0);
}

/** An offset time base that this system does not keep: all fields zero. */
void buildOfs(TLVObject& tlv, int type, const InstanceBlock& block, const unsigned char* followUp) {
    const unsigned char content[kOfsContentSize] = {};
    putBytes(tlv, content, sizeof content);
    put(tlv, 1,
        type == kOfsSecured ? bytewiseCrc(content, sizeof content, dataIdOf(block.cfg, followUp))
                            : 0);
}

const SubTlvKind* findKind(int type) {
    const auto* const found =
        std::find_if(std::begin(kSubTlvKinds), std::end(kSubTlvKinds),
                     [type](const SubTlvKind& kind) { return kind.type == type; });
    return found != std::end(kSubTlvKinds) ? found : nullptr;
}

void buildSubTlv(TLVObject& tlv, const SubTlvKind& kind, const InstanceBlock& block,
                 const unsigned char* followUp) {
    put(tlv, 1, static_cast<unsigned int>(kind.type));
    put(tlv, 1, kind.size - kSubTlvHeadSize);
    switch (kind.type) {
    case kTimeSecured:
        buildTime(tlv, block, followUp);
        break;
    case kStatusSecured:
    case kStatusNotSecured:
        buildStatus(tlv, kind.type, block, followUp);
        break;
    case kUserDataSecured:
    case kUserDataNotSecured:
        buildUserData(tlv, kind.type, block, followUp);
        break;
    default:
        buildOfs(tlv, kind.type, block, followUp);
        break;
    }
}

}  // namespace

TLVObject::TLVObject() : bytes{}, count(0) {}

TLVObject::TLVObject(int type, ptpv2hdr_t* followUpHeader, unsigned char mask) : bytes{}, count(0) {
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (instance == nullptr) {
        return;
    }
    if (type == kTlvHeaders) {
        buildHeaders(*this, mask);
    } else if (const SubTlvKind* kind = findKind(type)) {
        buildSubTlv(*this, *kind, instance->block, followUpHeader->octets);
    } else {
        std::fprintf(stdout, "@%s(%d): *** FATAL internal error ***\n", "TLVObject",
                     kUnknownTypeLine);
    }
}

TLVObject::~TLVObject() = default;

unsigned int getConfigParameterBlockTLVBitmask() {
    constexpr unsigned int kSecured = 1;
    constexpr unsigned int kNotSecured = 2;
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (instance == nullptr) {
        ZEB_LOG(kError, "There is no InterfaceDataManager ...\n");
        return 0;
    }
    const TSynInstanceConfig& cfg = instance->block.cfg;
    unsigned int mask = 0;
    const auto want = [&mask](bool wanted, SubTlvBit bit) { mask |= wanted ? bit + 0u : 0u; };
    want(cfg.timeSubTlv == kSecured, kTimeSecuredBit);
    want(cfg.statusSubTlv == kSecured, kStatusSecuredBit);
    want(cfg.statusSubTlv == kNotSecured, kStatusNotSecuredBit);
    want(cfg.userDataSubTlv == kSecured, kUserDataSecuredBit);
    want(cfg.userDataSubTlv == kNotSecured, kUserDataNotSecuredBit);
    return mask;
}

int SyncFollowUpAttachAutoSARTLV(char* frame, int length, char** destination, int* newLength) {
    constexpr int kTypeOffset = 14;
    constexpr int kLengthFieldOffset = 58;
    constexpr char kLengthField[] = {0, 86};
    if (length <= kTypeOffset || (static_cast<unsigned char>(frame[kTypeOffset]) &
                                  wire::kMessageTypeMask) != wire::kFollowUp) {
        *destination = frame;
        *newLength = length;
        return 0;
    }
    // Hosts hand the buffer itself over where the type says a pointer to one.
    char* const copy = reinterpret_cast<char*>(destination);
    std::memcpy(copy, frame, static_cast<std::size_t>(length));
    if (length >= kLengthFieldOffset + static_cast<int>(sizeof kLengthField)) {
        std::memcpy(copy + kLengthFieldOffset, kLengthField, sizeof kLengthField);
    }
    return 0;
}

int SyncFollowUpDetachAutoSARTLV(char* /*frame*/, int /*length*/, char* /*destination*/,
                                 int* /*newLength*/) {
    return 0;
}
