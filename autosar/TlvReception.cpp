#include <algorithm>
#include <cstddef>
#include <iterator>

#include "api/InterfaceDataManager.h"
#include "autosar/TLVObject.h"
#include "autosar/TlvCrc.h"
#include "autosar/TlvReader.h"
#include "base/DbgLog.h"

namespace {

constexpr int kOrganizationFieldsSize = 6;
constexpr unsigned int kUserDataContentSize = 1 + sizeof InstanceBlock::userBytes;

/** What a recorded CRC belongs to, as hosts read it. */
enum CrcKind : unsigned int { kCrcTime0 = 0, kCrcTime1 = 1, kCrcStatus = 2, kCrcUserData = 3 };

/** One Follow_Up's sub-TLVs on their way into the instance block. */
class Reception {
public:
    Reception(InstanceBlock& block, const TLVObject& tlv, const unsigned char* followUp)
        : block_(block),
          followUp_(followUp),
          dataId_(dataIdOf(block.cfg, followUp)),
          reader_(tlv.bytes, std::min<std::size_t>(tlv.count, sizeof tlv.bytes)) {}

    /** False when a recorded CRC did not match. */
    bool run() {
        reader_.get<2>();  // tlvType
        const unsigned int length = reader_.get<2>();
        const unsigned int organization = reader_.get<3>();
        reader_.get<3>();  // organizationSubType
        if (organization != wire::kOrganizationAutosar) {
            return true;
        }
        block_.subTlvCount = 0;
        // Signed: a length below the organisation fields leaves nothing to read. Each sub-TLV is
        // charged with its own length byte, whatever was read of it.
        int remaining = static_cast<int>(length) - kOrganizationFieldsSize;
        while (remaining > 0) {
            const unsigned char type = reader_.getByte();
            const unsigned char subLength = reader_.getByte();
            handle(type, subLength);
            remaining -= subLength + 2;
        }
        return allValid_;
    }

private:
    void handle(unsigned char type, unsigned char length) {
        switch (type) {
        case kTimeSecured:
            takeTime();
            break;
        case kStatusSecured:
        case kStatusNotSecured:
            takeStatus(type);
            break;
        case kUserDataSecured:
        case kUserDataNotSecured:
            takeUserData(type);
            break;
        case kOfsSecured:
        case kOfsNotSecured:
            reportUnexpected(type);
            reader_.skip(length);
            break;
        default:
            reader_.skip(length);
            break;
        }
    }

    void takeTime() {
        const unsigned char flags = reader_.getByte();
        block_.cfg.CrcTimeFlags = flags;
        const unsigned char crc0 = reader_.getByte();
        const unsigned char crc1 = reader_.getByte();
        record(kCrcTime0, crc0 == timeCrc0(block_.cfg, flags, followUp_));
        record(kCrcTime1, crc1 == timeCrc1(block_.cfg, flags, followUp_));
    }

    void takeStatus(unsigned char type) {
        const unsigned char status = reader_.getByte();
        block_.timeBaseStatus = status;
        const unsigned char crc = reader_.getByte();
        if (type == kStatusSecured) {
            record(kCrcStatus, crc == bytewiseCrc(block_.cfg, &status, 1, dataId_));
        }
    }

    void takeUserData(unsigned char type) {
        // Judged from a copy: a host may set user data of its own meanwhile.
        unsigned char content[kUserDataContentSize];
        block_.userDataLength = content[0] = reader_.getByte();
        for (unsigned int i = 1; i < kUserDataContentSize; ++i) {
            block_.userBytes[i - 1] = content[i] = reader_.getByte();
        }
        const unsigned char crc = reader_.getByte();
        if (type == kUserDataSecured) {
            record(kCrcUserData, crc == bytewiseCrc(block_.cfg, content, sizeof content, dataId_));
        }
    }

    /** The count goes on beyond the entries that there is room for. */
    void record(CrcKind kind, bool valid) {
        const unsigned int index = block_.subTlvCount;
        block_.subTlvCount = index + 1;
        if (index < std::size(block_.subTlvValid)) {
            block_.subTlvCrcKinds[index] = kind;
            block_.subTlvValid[index] = valid ? 1 : 0;
        }
        allValid_ = allValid_ && valid;
    }

    static void reportUnexpected(unsigned char type) {
        reportFault("@%s(%d): AUTOSAR Type %d *** valid but not expectecd***",
                    "ProcessIncomingAutoSARTLVObjects", __LINE__, type);
    }

    InstanceBlock& block_;
    const unsigned char* followUp_;
    unsigned char dataId_;
    TlvReader reader_;
    bool allValid_ = true;
};

}  // namespace

void TlvReader::fail() {
    reportFault("%s: FATAL internal error at 'const T& get()'", "get");
    throw static_cast<const char*>("No more data");
}

unsigned int ProcessIncomingAutoSARTLVObjects(TLVObject* tlv, ptpv2hdr_t* followUpHeader) {
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (instance == nullptr || Reception(instance->block, *tlv, followUpHeader->octets).run()) {
        return 1;
    }
    if (!reportsFaults()) {
        return 0;
    }
    reportFault("%s(%d): validation failed!", __func__, __LINE__);
    TlvReader::fail();
}
