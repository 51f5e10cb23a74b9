#include <cstring>
#include <ctime>
#include <initializer_list>
#include <stdexcept>

#include "autosar/SubTlvAttach.h"
#include "base/DbgLog.h"
#include "platform/i210helper.h"
#include "ptp/Port.h"
#include "ptp/ProtocolSteps.h"
#include "ptp/ReferenceRecord.h"
#include "ptp/ptpclass.h"
#include "timebase/PartialRegressionLine.h"

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

/** Sends a message whose transmit time nobody needs. */
void sendUntimed(PTPMessage& message) {
    ptp_time_t ignoredTime{};
    protocolSteps.finish(message.data());
    message.service->transmit(message.data(), static_cast<int>(wire::messageLength(message.data())),
                              &ignoredTime);
}

void fillFollowUp(PTPMessage& followUp, const unsigned char* sync, const Port& port,
                  const InstanceBlock& block, ptp_time_t& txTime) {
    unsigned char* const buffer = followUp.data();
    std::memcpy(buffer + wire::kSourceClockIdentity, sync + wire::kSourceClockIdentity,
                wire::kPortIdentitySize);
    wire::store16(buffer + wire::kSequenceId, wire::sequenceId(sync));
    if (port.name == nullptr) {
        // The text that hosts know from the string that was made of the name here.
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    txTime = toPtpTime(toNs(txTime) + static_cast<unsigned long long>(port.record.softOffset()));
    wire::storeTimestamp(buffer + wire::kTimestamp, txTime);
    putFollowUpTlv(buffer + wire::kFollowUpTlv);
    // Any nonzero value attaches, although only 1 holds Sync back.
    if (block.cfg.EnableAutosarExtensions != 0) {
        attachSubTlvs(buffer, block, subTlvMask(block.cfg));
    }
}

/** A master with AUTOSAR extensions sends no Sync until it has a global time base itself. */
bool lacksGlobalTimeBase(const InstanceBlock& block) {
    return block.cfg.EnableAutosarExtensions == 1 && (block.timeBaseStatus & kGlobalTimeBase) == 0;
}

}  // namespace

ReferenceRecord referenceRecord{};

void publishClockReadings(Port& port) {
    const long double rate =
        static_cast<long double>(slope_mN) / static_cast<long double>(slope_mZ);
    const long long phcNs = i210helper::e1000_ptp_get_time(port.name);
    port.record.publishMasterTime(rate, phcNs, readLocalClock(port.service));
    referenceRecord.hardwareTime[1] = static_cast<unsigned long long>(phcNs);
    referenceRecord.cpuTime[1] = static_cast<unsigned long long>(processCpuTimeNs());
}

void logTxMode(unsigned int txMode) {
    ZEB_LOG_AS("processOutgoing", kError, "Wrong configuration TxMode 0x%x ...\n", txMode);
}

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
    const InstanceBlock* const block = instanceBlock();
    if (block == nullptr) {
        return 0;
    }
    const unsigned int txMode = block->cfg.TxMode;
    if (txMode == kTxModeOff) {
        return 0;
    }
    if (txMode == kTxModeSend) {
        if (lacksGlobalTimeBase(*block)) {
            return 0;
        }
        Port port = portOf(service);
        ++sequence_;
        wire::store16(buffer_ + wire::kSequenceId, sequence_);
        port.record.noteSentSync(sequence_);
        storeClockIdentity(*this, {wire::kSourceClockIdentity});
        ptp_time_t txTime{};
        protocolSteps.finish(buffer_);
        service->transmit(buffer_, static_cast<int>(wire::messageLength(buffer_)), &txTime);

        if (protocolSteps.isSent(txTime)) {
            PTPMsgFollowUp followUp(block->cfg.Domain);
            followUp.service = service;
            fillFollowUp(followUp, buffer_, port, *block, txTime);
            sendUntimed(followUp);
        }
        protocolSteps.publishMasterTime(port);
    }
    protocolSteps.noteSyncTurn(txMode);
    return 0;
}

unsigned int PTPMsgFollowUp::processOutgoing(PTPMessage* sync, ptp_time_t* txTimestamp) {
    const InstanceBlock* const block = instanceBlock();
    if (block == nullptr) {
        return 0;
    }
    fillFollowUp(*this, sync->data(), portOf(service), *block, *txTimestamp);
    return 1;
}

unsigned int PTPMsgAnnounce::processOutgoing() {
    ++sequence_;
    wire::store16(buffer_ + wire::kSequenceId, sequence_);
    storeClockIdentity(
        *this, {wire::kSourceClockIdentity, wire::kGrandmasterIdentity, wire::kPathSequence});
    sendUntimed(*this);
    return 1;
}
