#include "autosar/TLVObject.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "api/InterfaceDataManager.h"
#include "autosar/SubTlvAttach.h"
#include "base/DbgLog.h"

namespace {

constexpr const char* kLogSource = log_source::kSubTlvs;
constexpr int kUnknownTypeLine = 340;

const SubTlvKind* findKind(int type) {
    const auto* const found =
        std::find_if(std::begin(kSubTlvKinds), std::end(kSubTlvKinds),
                     [type](const SubTlvKind& kind) { return kind.type == type; });
    return found != std::end(kSubTlvKinds) ? found : nullptr;
}

}  // namespace

TLVObject::TLVObject() : bytes{}, count(0) {}

TLVObject::TLVObject(int type, ptpv2hdr_t* followUpHeader, unsigned char mask) : bytes{}, count(0) {
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (instance == nullptr) {
        return;
    }
    unsigned char* end = bytes;
    if (type == kTlvHeaders) {
        end = putAutosarHead(putFollowUpTlv(bytes), mask);
    } else if (const SubTlvKind* kind = findKind(type)) {
        end = putSubTlv(bytes, *kind, instance->block, followUpHeader->octets);
    } else {
        std::fprintf(stdout, "@%s(%d): *** FATAL internal error ***\n", "TLVObject",
                     kUnknownTypeLine);
    }
    count = static_cast<unsigned int>(end - bytes);
}

TLVObject::~TLVObject() = default;

unsigned int getConfigParameterBlockTLVBitmask() {
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (instance == nullptr) {
        ZEB_LOG(kError, "There is no InterfaceDataManager ...\n");
        return 0;
    }
    return subTlvMask(instance->block.cfg);
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
