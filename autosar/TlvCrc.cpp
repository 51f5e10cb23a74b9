#include "autosar/TlvCrc.h"

#include "api/InterfaceDataManager.h"
#include "base/DbgLog.h"
#include "wire/Crc8H2F.h"

namespace {

constexpr const char* kLogSource = log_source::kSubTlvs;
constexpr unsigned int kCrcOff = 0;
constexpr unsigned int kCrcOn = 1;
constexpr unsigned char kMasterSubstitute = 0x00;
constexpr unsigned char kSlaveSubstitute = 0xFF;
constexpr unsigned char kDataIdIndexMask = 0x0F;

/** Bits of CrcTimeFlags. */
enum CrcTimeFlag : unsigned char {
    kCoverMessageLength = 0x01,
    kCoverDomainNumber = 0x02,
    kCoverCorrectionField = 0x04,
    kCoverPortNumber = 0x08,
    kCoverSequenceId = 0x10,
    kCoverOriginTimestamp = 0x20
};

/** A header field that a flag puts under a time CRC. */
struct CoveredField {
    CrcTimeFlag flag;
    int offset;
    unsigned int size;
};

// Of the source port identity only the two bytes of the port number count: peers agree on that.
constexpr CoveredField kTime0Fields[] = {{kCoverDomainNumber, wire::kDomainNumber, 1},
                                         {kCoverPortNumber, wire::kSourcePortNumber, 2},
                                         {kCoverOriginTimestamp, wire::kTimestamp, 10}};
constexpr CoveredField kTime1Fields[] = {{kCoverMessageLength, wire::kMessageLength, 2},
                                         {kCoverCorrectionField, wire::kCorrectionField, 8},
                                         {kCoverSequenceId, wire::kSequenceId, 2}};

/** A piece of a CRC, or its substitute while CRCs are switched off. A wrong mode is logged for each
 *  piece, so that it does not stay unnoticed. */
unsigned char crcPiece(unsigned int mode, bool isMaster, const unsigned char* data,
                       unsigned int length, unsigned char startValue, bool isFirstCall) {
    if (mode == kCrcOn) {
        constexpr unsigned char kEmpty = crc8h2f::kInitialValue ^ crc8h2f::kFinalXor;
        return crc8h2f::update(isFirstCall ? kEmpty : startValue, data, length);
    }
    if (mode != kCrcOff) {
        ZEB_LOG_AS("Crc_CalculateCRC8H2F", kError, "Wrong configuration TxCrcMode: 0x%x ...\n",
                   mode);
    }
    // A master's receivers look for 0x00; a slave that does not compute accepts only 0xFF.
    return isMaster ? kMasterSubstitute : kSlaveSubstitute;
}

/** A CRC over several pieces. */
class CrcChain {
public:
    explicit CrcChain(const TSynInstanceConfig& cfg)
        : mode_(cfg.TxCrcMode), isMaster_(cfg.role != 0) {}

    void add(const unsigned char* data, unsigned int length) {
        crc_ = crcPiece(mode_, isMaster_, data, length, crc_, first_);
        first_ = false;
    }

    void add(unsigned char byte) { add(&byte, 1); }

    unsigned char value() const { return crc_; }

private:
    unsigned int mode_;
    bool isMaster_;
    unsigned char crc_ = 0;
    bool first_ = true;
};

unsigned char timeCrc(const TSynInstanceConfig& cfg, const CoveredField (&fields)[3],
                      unsigned char flags, const unsigned char* followUp) {
    CrcChain chain(cfg);
    chain.add(flags);
    for (const CoveredField& field : fields) {
        if ((flags & field.flag) != 0) {
            chain.add(followUp + field.offset, field.size);
        }
    }
    chain.add(dataIdOf(cfg, followUp));
    return chain.value();
}

}  // namespace

unsigned char Crc_CalculateCRC8H2F(unsigned char const* data, unsigned int length,
                                   unsigned char startValue, bool isFirstCall) {
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    const bool known = instance != nullptr;
    return crcPiece(known ? instance->block.cfg.TxCrcMode : kCrcOff,
                    known && instance->block.cfg.role != 0, data, length, startValue, isFirstCall);
}

unsigned char dataIdOf(const TSynInstanceConfig& cfg, const unsigned char* followUp) {
    return cfg.DataIDList[followUp[wire::kSequenceId + 1] & kDataIdIndexMask];
}

unsigned char timeCrc0(const TSynInstanceConfig& cfg, unsigned char flags,
                       const unsigned char* followUp) {
    return timeCrc(cfg, kTime0Fields, flags, followUp);
}

unsigned char timeCrc1(const TSynInstanceConfig& cfg, unsigned char flags,
                       const unsigned char* followUp) {
    return timeCrc(cfg, kTime1Fields, flags, followUp);
}

unsigned char bytewiseCrc(const TSynInstanceConfig& cfg, const unsigned char* data,
                          unsigned int length, unsigned char dataId) {
    CrcChain chain(cfg);
    for (unsigned int i = 0; i < length; ++i) {
        chain.add(data[i]);
    }
    chain.add(dataId);
    return chain.value();
}
