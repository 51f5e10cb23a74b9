#include <algorithm>
#include <cstring>
#include <ctime>

#include "autosar/TLVObject.h"
#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "ptp/Port.h"
#include "ptp/ProtocolSteps.h"
#include "ptp/ReferenceRecord.h"
#include "ptp/SyncEstimate.h"
#include "ptp/clockitems.h"
#include "ptp/ptpclass.h"
#include "timebase/TimeConversion.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
constexpr const char* kHandler = "processIncoming";

/** Checks the common header of a Sync and logs the first failure. */
bool isValidSyncHeader(const unsigned char* message) {
    const unsigned int transport = message[wire::kTransportAndType] & wire::kTransportSpecific;
    if (transport == 0) {
        ZEB_LOG_AS(kHandler, kError, "Wrong transport specific bit 0x%x ...\n", transport);
        return false;
    }
    // The whole byte: a peer that sets a minor version is refused.
    if (message[wire::kVersion] != wire::kVersionPtp) {
        ZEB_LOG_AS(kHandler, kError, "Wrong PTP version %u ...\n", message[wire::kVersion]);
        return false;
    }
    if (wire::messageLength(message) < wire::kSyncLength) {
        ZEB_LOG_AS(kHandler, kError, "Wrong message length %u ...\n", wire::messageLength(message));
        return false;
    }
    if (message[wire::kControl] != 0) {
        ZEB_LOG_AS(kHandler, kError, "Wrong control 0x%x ...\n", message[wire::kControl]);
        return false;
    }
    if (message[wire::kDomainNumber] > wire::kMaxDomain) {
        ZEB_LOG_AS(kHandler, kError, "Invalid domain number received:%d ...\n",
                   message[wire::kDomainNumber]);
        return false;
    }
    return true;
}

/** Checks and reports the AUTOSAR TLV behind the Follow_Up information TLV. False when the data
 *  ended early or, above trace level 0, a CRC was wrong: the Follow_Up is then not used. */
bool takeAutosarTlv(PTPMessage& followUp) {
    // Ten more than the TLV has; the surplus reads as the zeros behind the message. Deployed
    // masters send length fields that count on it.
    constexpr unsigned int kCountLess = 66;
    constexpr unsigned int kRoom = wire::kMessageBufferSize - wire::kAutosarTlv;
    TLVObject tlv;
    tlv.count = wire::messageLength(followUp.data()) - kCountLess;
    std::memcpy(tlv.bytes, followUp.data() + wire::kAutosarTlv, std::min(tlv.count, kRoom));
    try {
        ProcessIncomingAutoSARTLVObjects(&tlv, followUp.header());
    } catch (const char*) {
        return false;
    }
    return true;
}

int millisecondOfWallClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int>(static_cast<unsigned int>(now.tv_nsec) / kNsPerMillisecond);
}

SyncSample evaluateSample(const unsigned char* followUp, unsigned long long originNs,
                          const TimeRecord& record, const ClockItemMembersType& item) {
    const long double recordRate = record.masterRate();
    const long long correction = totalCorrectionNs(
        correctionNs(static_cast<long long>(wire::load64(followUp + wire::kCorrectionField))),
        protocolSteps.masterRateRatio(wire::load32(followUp + wire::kCumulativeScaledRateOffset)),
        static_cast<unsigned long long>(record.linkDelay()), recordRate == 0 ? 1 : recordRate);
    SyncSample sample{};
    sample.sequenceId = wire::sequenceId(followUp);
    sample.originNs = originNs;
    sample.correction = correction;
    sample.masterNs = originNs + static_cast<unsigned long long>(correction);
    sample.localNs = item.localTimes.entries[0].ns;
    sample.rate = rateRatio(sample.masterNs, item.masterTimes.entries[1].ns, sample.localNs,
                            item.localTimes.entries[1].ns);
    sample.offset = signedDiff(sample.localNs, sample.masterNs);
    return sample;
}

void noteReferencePair(const SyncSample& sample, const LocalClock& local) {
    const long long cpuTime = processCpuTimeNs();
    referenceRecord.hardwareTime[0] = referenceTimeNs(
        local.phcNs, sample.offset, local.systemOffset, sample.rate * local.rate, cpuTime);
    referenceRecord.cpuTime[0] = static_cast<unsigned long long>(cpuTime);
}

void shiftHistories(ClockItemMembersType& item) {
    item.masterTimes.shift();
    item.spareTimes.shift();
    item.localTimes.shift();
}

/** Computes and publishes the time of a completed pair. */
void useSample(Port& port, const SyncSample& sample, ClockItemMembersType& item) {
    item.masterTimes.entries[0].ns = sample.masterNs;
    const bool rateInRange = isRateInRange(sample.rate);
    if (!rateInRange) {
        ZEB_LOG_AS(kHandler, kError,
                   "frequency offset out of range ... t1: %llu t2: %llu correction: %lld "
                   "ml_freqoffset: %Lf \n",
                   sample.masterNs, sample.localNs, sample.correction, sample.rate);
    }
    const LocalClock local = readLocalClock(port.service);
    port.record.publishSlaveSample(sample, rateInRange, local);
    noteReferencePair(sample, local);
    shiftHistories(item);
}

}  // namespace

void useSuccessivePairs(Port& port, const unsigned char* followUp, unsigned long long originNs,
                        ClockItemMembersType& item) {
    item.originTime.ns = originNs;
    item.masterTimes.entries[0].ns = originNs;
    if (item.initialised == 0) {
        // Nothing is shifted, so the next pair divides absolute times and only the third one
        // yields a real ratio.
        item.initialised = 1;
        return;
    }
    useSample(port, evaluateSample(followUp, originNs, port.record, item), item);
}

unsigned int PTPMsgSync::processIncoming() {
    const PortKey master = retrievePortIdentity();
    const InstanceBlock* const block = instanceBlock();
    Port port = portOf(service);
    if (block == nullptr || block->cfg.role != 0) {
        return 0;
    }
    if (!isValidSyncHeader(buffer_) || buffer_[wire::kDomainNumber] != block->cfg.Domain) {
        port.record.countRejectedSync();
        return 0;
    }
    const unsigned long long t2 = toNs(rxTimestamp);
    ClockItemMembersType& item = clockItemOf(master);
    if (!protocolSteps.takesSync(item, wire::sequenceId(buffer_), t2)) {
        return 1;
    }
    item.syncReceiveTime.ns = t2;
    item.originTime.ns = 0;
    item.masterTimes.entries[0].ns = 0;
    item.localTimes.entries[0].ns = t2;
    protocolSteps.noteArrival(port.name);
    item.syncSequenceId = static_cast<int>(wire::sequenceId(buffer_));
    port.record.countAcceptedSync(wire::sequenceId(buffer_));
    return 1;
}

// A master evaluates a Follow_Up too: it finds no accepted Sync and stops there.
unsigned int PTPMsgFollowUp::processIncoming() {
    instanceBlock();  // a host that hands messages over before Create gets its instance here
    Port port = portOf(service);
    const int sequence = static_cast<int>(wire::sequenceId(buffer_));
    const PortKey master = retrievePortIdentity();
    protocolSteps.noteArrival(port.name);
    const int arrivalMark = millisecondOfWallClock();
    if (wire::messageLength(buffer_) > wire::kFollowUpLength && !takeAutosarTlv(*this)) {
        return 1;
    }
    ClockItemMembersType& item = clockItemOf(master);
    item.arrivalMark = arrivalMark;
    if (item.syncSequenceId != sequence) {
        return 1;
    }
    protocolSteps.useSyncPair(port, buffer_, getPTPMessageTimestamp(), item);
    return 1;
}
