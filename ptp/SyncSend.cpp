#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>

#include "api/InterfaceDataManager.h"
#include "autosar/TLVObject.h"
#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "platform/i210helper.h"
#include "ptp/ReferenceRecord.h"
#include "ptp/ptpclass.h"
#include "timebase/PartialRegressionLine.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
constexpr unsigned char kControlSync = 0;
constexpr unsigned char kControlFollowUp = 2;
constexpr unsigned char kControlOther = 5;
constexpr unsigned char kLogInterval125ms = 0xFD;
constexpr unsigned int kTxModeOff = 0;
constexpr unsigned int kTxModeSend = 1;
constexpr unsigned char kGlobalTimeBase = 0x08;

// The grandmaster that a master announces itself to be; peers expect exactly these.
constexpr unsigned char kAnnouncedPriority1 = 0x01;
constexpr unsigned char kAnnouncedClockClass = 248;
constexpr unsigned char kAnnouncedAccuracy = 0xFE;
constexpr unsigned int kAnnouncedVariance = 0x4010;
constexpr unsigned char kAnnouncedPriority2 = 248;
constexpr unsigned char kInternalOscillator = 0xA0;

void storeClockIdentity(PTPMessage& message, std::initializer_list<int> offsets) {
    const unsigned char* const identity = BuildPTPClockIdentityFromMacAdress(message.service);
    for (const int offset : offsets) {
        std::memcpy(message.data() + offset, identity, wire::kClockIdentitySize);
    }
}

/** Publishes what a master knows after each Sync. */
void publishMasterTime(NetworkService<sock>* service, gPtpTimeDataStruct& record) {
    record.masterOffset = 0;
    storeExtended(record.rateRatio1,
                  static_cast<long double>(slope_mN) / static_cast<long double>(slope_mZ));
    const long long phcNs = i210helper::e1000_ptp_get_time(GetInterfaceName(service));
    record.originTime = static_cast<unsigned long long>(phcNs);
    long long systemTime = 0;
    long long phcTime = 0;
    long long offset = 0;
    long double ratio = 0;
    service->GetLocalSystemCapabilities(systemTime, phcTime, offset, ratio);
    record.systemTime = static_cast<unsigned long long>(systemTime);
    record.localTime = static_cast<unsigned long long>(phcTime);
    record.systemOffset = offset;
    storeExtended(record.rateRatio2, ratio);
    referenceRecord.hardwareTime[1] = static_cast<unsigned long long>(phcNs);
    referenceRecord.cpuTime[1] = static_cast<unsigned long long>(processCpuTimeNs());
}

void append(TLVObject& tlv, PTPMessage& message, unsigned int& end) {
    std::memcpy(message.data() + end, tlv.bytes, tlv.count);
    end += tlv.count;
}

/** Replaces the Follow_Up information TLV by itself and the AUTOSAR TLV with the sub-TLVs of the
 *  mask. The length comes first, since the CRCs may cover it. */
void attachAutosarTlv(PTPMessage& followUp, unsigned int mask) {
    TLVObject headers(kTlvHeaders, nullptr, static_cast<unsigned char>(mask));
    unsigned int end = wire::kFollowUpTlv;
    wire::store16(followUp.data() + wire::kMessageLength, end + headers.count + subTlvSize(mask));
    append(headers, followUp, end);
    for (const SubTlvKind& kind : kSubTlvKinds) {
        if ((mask & kind.bit) != 0) {
            TLVObject subTlv(kind.type, followUp.header(), 0);
            append(subTlv, followUp, end);
        }
    }
}

/** A master with AUTOSAR extensions sends no Sync until it has a global time base itself. */
bool lacksGlobalTimeBase(const InstanceBlock& block) {
    return block.cfg.EnableAutosarExtensions == 1 && (block.timeBaseStatus & kGlobalTimeBase) == 0;
}

}  // namespace

ReferenceRecord referenceRecord{};

long long processCpuTimeNs() {
    timespec cpuTime{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpuTime);
    return wrappedCpuTimeNs(cpuTime);
}

PTPMsgSync::PTPMsgSync(unsigned char domain, unsigned short portNumber)
    : PTPMessage(wire::kSync, domain) {
    wire::store16(buffer_ + wire::kMessageLength, wire::kSyncLength);
    buffer_[wire::kFlags] = wire::kTwoStepFlag;
    buffer_[wire::kFlags + 1] = wire::kPtpTimescaleFlag;
    wire::store16(buffer_ + wire::kSourcePortNumber, portNumber);
    buffer_[wire::kControl] = kControlSync;
    buffer_[wire::kLogMessageInterval] = kLogInterval125ms;
}

PTPMsgFollowUp::PTPMsgFollowUp(unsigned char domain) : PTPMessage(wire::kFollowUp, domain) {
    wire::store16(buffer_ + wire::kMessageLength, wire::kFollowUpLength);
    buffer_[wire::kFlags + 1] = wire::kPtpTimescaleFlag;
    buffer_[wire::kControl] = kControlFollowUp;
    buffer_[wire::kLogMessageInterval] = kLogInterval125ms;
}

PTPMsgAnnounce::PTPMsgAnnounce(unsigned char domain, unsigned short portNumber)
    : PTPMessage(wire::kAnnounce, domain) {
    wire::store16(buffer_ + wire::kMessageLength, wire::kAnnounceLength);
    buffer_[wire::kFlags + 1] = wire::kPtpTimescaleFlag;
    wire::store16(buffer_ + wire::kSourcePortNumber, portNumber);
    buffer_[wire::kControl] = kControlOther;
    buffer_[wire::kGrandmasterPriority1] = kAnnouncedPriority1;
    buffer_[wire::kClockClass] = kAnnouncedClockClass;
    buffer_[wire::kClockAccuracy] = kAnnouncedAccuracy;
    wire::store16(buffer_ + wire::kOffsetScaledLogVariance, kAnnouncedVariance);
    buffer_[wire::kGrandmasterPriority2] = kAnnouncedPriority2;
    buffer_[wire::kTimeSource] = kInternalOscillator;
    wire::store16(buffer_ + wire::kPathTraceTlv, wire::kTlvPathTrace);
    wire::store16(buffer_ + wire::kPathTraceLength, wire::kClockIdentitySize);
}

unsigned int PTPMsgSync::processOutgoing() {
    const InstanceBlock& block = InterfaceDataManager::getInstance()->block;
    const unsigned int txMode = block.cfg.TxMode;
    if (txMode == kTxModeOff) {
        return 0;
    }
    if (txMode == kTxModeSend) {
        if (lacksGlobalTimeBase(block)) {
            return 0;
        }
        gPtpTimeDataStruct* const record = OSipc::instance(GetInterfaceName(service));
        ++sequence_;
        wire::store16(buffer_ + wire::kSequenceId, sequence_);
        if (record != nullptr) {
            record->sequenceId = sequence_;
        }
        storeClockIdentity(*this, {wire::kSourceClockIdentity});
        ptp_time_t txTime{};
        service->transmit(buffer_, static_cast<int>(wire::messageLength(buffer_)), &txTime);

        PTPMsgFollowUp followUp(block.cfg.Domain);
        followUp.service = service;
        followUp.processOutgoing(this, &txTime);
        ptp_time_t ignoredTime{};
        service->transmit(followUp.data(), static_cast<int>(wire::messageLength(followUp.data())),
                          &ignoredTime);
        if (record != nullptr) {
            publishMasterTime(service, *record);
        }
    }
    // After a sent Sync as well: log readers count this line to see that a master is alive.
    ZEB_LOG(kError, "Wrong configuration TxMode 0x%x ...\n", txMode);
    return 0;
}

unsigned int PTPMsgFollowUp::processOutgoing(PTPMessage* sync, ptp_time_t* txTimestamp) {
    constexpr int kPortIdentitySize = 10;
    const std::string interfaceName(GetInterfaceName(service));
    const gPtpTimeDataStruct* const record = OSipc::instance(interfaceName.c_str());
    std::memcpy(buffer_ + wire::kSourceClockIdentity, sync->data() + wire::kSourceClockIdentity,
                kPortIdentitySize);
    wire::store16(buffer_ + wire::kSequenceId, wire::sequenceId(sync->data()));
    const long long softOffset = record != nullptr ? record->softOffset : 0;
    *txTimestamp = toPtpTime(toNs(*txTimestamp) + static_cast<unsigned long long>(softOffset));
    wire::storeTimestamp(buffer_ + wire::kTimestamp, *txTimestamp);
    wire::store16(buffer_ + wire::kFollowUpTlv, wire::kTlvOrganizationExtension);
    wire::store16(buffer_ + wire::kFollowUpTlv + 2, wire::kFollowUpTlvLength);
    wire::storeBigEndian<3>(buffer_ + wire::kFollowUpOrganizationId, wire::kOrganizationIeee8021);
    wire::storeBigEndian<3>(buffer_ + wire::kFollowUpOrganizationSubType, 1);
    // Any nonzero value attaches, although only 1 holds Sync back.
    if (InterfaceDataManager::getInstance()->block.cfg.EnableAutosarExtensions != 0) {
        const unsigned int mask = getConfigParameterBlockTLVBitmask();
        if (mask != 0) {
            attachAutosarTlv(*this, mask);
        }
    }
    return 1;
}

unsigned int PTPMsgAnnounce::processOutgoing() {
    ++sequence_;
    wire::store16(buffer_ + wire::kSequenceId, sequence_);
    storeClockIdentity(
        *this, {wire::kSourceClockIdentity, wire::kGrandmasterIdentity, wire::kPathSequence});
    ptp_time_t ignoredTime{};
    service->transmit(buffer_, static_cast<int>(wire::messageLength(buffer_)), &ignoredTime);
    return 1;
}
