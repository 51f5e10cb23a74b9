#include <unistd.h>

#include <cstring>

#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "base/MutexLock.h"
#include "platform/i210helper.h"
#include "ptp/LinkDelay.h"
#include "ptp/Port.h"
#include "ptp/ProtocolSteps.h"
#include "ptp/clockitems.h"
#include "ptp/ptpclass.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
constexpr const char* kHandler = "processIncoming";
constexpr unsigned char kControlOther = 5;
constexpr int kImpossibleTimesLine = 900;
constexpr useconds_t kTransmitTimeGrace = 100;

bool isComplete(const ClockItemMembersType& item) {
    return item.t1.ns != 0 && item.t2.ns != 0 && item.t4.ns != 0;
}

void acceptDelay(const char* interfaceName, const PdelayTimes& times, long long delay,
                 ClockItemMembersType& item, TimeRecord& record) {
    item.measuredDelay = filteredDelay(item.measuredDelay, delay);
    record.publishLinkDelay(item.measuredDelay);
    ZEB_LOG_AS(kHandler, kInfo, "[%s:] T4-T1=%lld-%lld (%lld) | T3-T2=%lld-%lld (%lld) \n",
               interfaceName, static_cast<long long>(times.t4), static_cast<long long>(times.t1),
               signedDiff(times.t4, times.t1), static_cast<long long>(times.t3),
               static_cast<long long>(times.t2), signedDiff(times.t3, times.t2));
    ZEB_LOG_AS(kHandler, kInfo, "[%s:] Measured delay: %d\n", interfaceName, item.measuredDelay);
}

void rejectDelay(const char* interfaceName, const PdelayTimes& times, long long delay,
                 ClockItemMembersType& item) {
    ZEB_LOG_AS(kHandler, kError,
               "[%s:] # T4-T1=%lld-%lld (%lld) | T3-T2=%lld-%lld (%lld)  | Round trip delay or "
               "negative: %lld is out of limits\n",
               interfaceName, static_cast<long long>(times.t4), static_cast<long long>(times.t1),
               signedDiff(times.t4, times.t1), static_cast<long long>(times.t3),
               static_cast<long long>(times.t2), signedDiff(times.t3, times.t2), delay);
    item.measuredDelay = kEmptyFilter;
}

TimeBaseFit updateFit(long long correctionField, ClockItemMembersType& item) {
    item.corrections.entries[0].ns = static_cast<unsigned long long>(correctionField);
    item.responseTimes.entries[0].ns = item.t4.ns;
    long long corrections[kHistoryDepth];
    unsigned long long responseTimes[kHistoryDepth];
    for (int i = 0; i < kHistoryDepth; ++i) {
        corrections[i] = static_cast<long long>(item.corrections.entries[i].ns);
        responseTimes[i] = item.responseTimes.entries[i].ns;
    }
    item.corrections.shift();
    item.responseTimes.shift();
    return fitTimeBase(corrections, responseTimes);
}

}  // namespace

long long requestReadsPhc(const char* interfaceName) {
    return i210helper::e1000_ptp_get_time(interfaceName);
}

void noteClocksAtResponse(const char* interfaceName, ClockItemMembersType& item) {
    unsigned long long systemTime = 0;
    unsigned long long phcTime = 0;
    i210helper::e1000_ptp_get_ext_time(interfaceName, &systemTime, &phcTime);
    item.extTime1 = systemTime;
    item.extTime2 = phcTime;
}

void reportImpossibleTimes(ClockItemMembersType& item) {
    while (item.t4.ns < item.t1.ns) {
        if (reportsFaults()) {
            reportFault(
                "@%s(%d): FATAL: invalid Runtime condition: 'clockItems[item].t4 < "
                "clockItems[item].t1'",
                kHandler, kImpossibleTimesLine);
        } else {
            item.t4 = item.t1;
        }
    }
}

void averageDelays(Port& port, const unsigned char* respFollowUp, const PdelayTimes& times,
                   ClockItemMembersType& item) {
    const long double ratio =
        neighbourRateRatio(times.t3, item.prev_t3.ns, times.t4, item.prev_t4.ns);
    ZEB_LOG_AS(kHandler, kInfo, "neighborRateRatio : %Lf\n", ratio);
    const long long delay = meanLinkDelay(times, ratio);
    if (isDelayInLimits(delay)) {
        acceptDelay(port.name, times, delay, item, port.record);
    } else {
        rejectDelay(port.name, times, delay, item);
    }
    const LocalClock local = readLocalClock(port.service);
    const TimeBaseFit fit = updateFit(
        static_cast<long long>(wire::load64(respFollowUp + wire::kCorrectionField)), item);
    port.record.publishTimeBase({fit.slope, fit.estimate, times.t3}, local);
}

PTPMsgPathDelayReq::PTPMsgPathDelayReq(unsigned char domain, unsigned short portNumber)
    : PTPMessage(wire::kPdelayReq, domain) {
    wire::store16(buffer_ + wire::kMessageLength, wire::kPdelayLength);
    buffer_[wire::kFlags + 1] = wire::kPtpTimescaleFlag;
    wire::store16(buffer_ + wire::kSourcePortNumber, portNumber);
    buffer_[wire::kControl] = kControlOther;
}

unsigned int PTPMsgPathDelayReq::processOutgoing() {
    const MutexLock lock(mutex_);
    std::memcpy(buffer_ + wire::kSourceClockIdentity, BuildPTPClockIdentityFromMacAdress(service),
                wire::kClockIdentitySize);
    ClockItemMembersType& item = clockItemOf(retrievePortIdentity());
    ++sequence_;
    wire::store16(buffer_ + wire::kSequenceId, sequence_);
    item.pdelaySeqNo = sequence_;
    item.t1.ns = 0;
    item.t2.ns = 0;
    item.t3.ns = 0;
    item.t4.ns = 0;
    const long long phcNs = protocolSteps.requestOrigin(GetInterfaceName(service));
    wire::storeTimestamp(buffer_ + wire::kTimestamp,
                         toPtpTime(static_cast<unsigned long long>(phcNs)));
    ptp_time_t txTime{};
    protocolSteps.finish(buffer_);
    service->transmit(buffer_, static_cast<int>(wire::messageLength(buffer_)), &txTime);
    item.t1.ns = toNs(txTime);
    // Tested literally: the preset comes back when the 16-bit counter has wrapped.
    if (sequence_ == 1) {
        item.measuredDelay = kPresetDelay;
    }
    return 1;
}

unsigned int PTPMsgPathDelayResp::processIncoming() {
    const MutexLock lock(mutex_);
    ClockItemMembersType& item = clockItemOf(retrievePortIdentity());
    item.respPortNumber =
        static_cast<unsigned short>(wire::load16(buffer_ + wire::kSourcePortNumber));
    protocolSteps.noteResponse(GetInterfaceName(service), item);
    const unsigned int sequence = wire::sequenceId(buffer_);
    if (item.pdelaySeqNo != sequence) {
        ZEB_LOG(kError, "clockItems[item].pdelaySeqNo: %u\n", item.pdelaySeqNo);
        ZEB_LOG(kError, "ptpdata->sequenceId: %u\n", sequence);
    }
    if (item.t2.ns != 0 || item.t4.ns != 0 || item.pdelaySeqNo != sequence) {
        return 0;
    }
    item.t2.ns = getPTPMessageTimestamp();
    item.t4.ns = toNs(rxTimestamp);
    protocolSteps.checkResponse(item);
    return 1;
}

unsigned int PTPMsgPathDelayRespFollowUp::processIncoming() {
    Port port = portOf(service);
    ClockItemMembersType& item = clockItemOf(retrievePortIdentity());
    item.t3.ns = getPTPMessageTimestamp();
    if (item.t1.ns == 0) {
        // The sending thread stores t1 once it has the transmit timestamp, which may be just now.
        usleep(kTransmitTimeGrace);
    }
    if (!isComplete(item)) {
        port.record.countIncompletePdelay();
        return 0;
    }
    const PdelayTimes times{item.t1.ns, item.t2.ns, item.t3.ns, item.t4.ns};
    protocolSteps.usePdelayExchange(port, buffer_, times, item);
    item.prev_t1 = item.t1;
    item.prev_t2 = item.t2;
    item.prev_t3 = item.t3;
    item.prev_t4 = item.t4;
    item.t2.ns = 0;
    item.t4.ns = 0;
    return 1;
}
