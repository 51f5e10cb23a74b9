#include <cstring>

#include "api/InterfaceDataManager.h"
#include "base/Extended80.h"
#include "base/MutexLock.h"
#include "ptp/ptpclass.h"
#include "timebase/osipc.h"

namespace {

constexpr int kPortIdentitySize = 10;

/** trunc(rate * (tx - phcTime)) + (phcTime - masterOffset), ns. */
long long responseCorrection(const gPtpTimeDataStruct& record, unsigned long long txNs) {
    const unsigned long long phcTime = record.localTime;
    const auto masterOffset = static_cast<unsigned long long>(record.masterOffset);
    const long double sinceCrossTimestamp = static_cast<long double>(signedDiff(txNs, phcTime));
    const long long scaled = toS64(loadExtended(record.rateRatio1) * sinceCrossTimestamp);
    return static_cast<long long>(static_cast<unsigned long long>(scaled) + phcTime - masterOffset);
}

/** Host byte order, the one field on the wire that is not big-endian: deployed requesters of this
 *  system swap it on reading. */
void storeCorrectionInHostOrder(unsigned char* message, long long correction) {
    std::memcpy(message + wire::kCorrectionField, &correction, sizeof correction);
}

}  // namespace

PTPMsgPathDelayResp::PTPMsgPathDelayResp(unsigned char domain)
    : PTPMessage(wire::kPdelayResp, domain) {}

PTPMsgPathDelayRespFollowUp::PTPMsgPathDelayRespFollowUp(unsigned char domain)
    : PTPMessage(wire::kPdelayRespFollowUp, domain) {}

unsigned int PTPMsgPathDelayReq::processIncoming() {
    const MutexLock lock(mutex_);
    const unsigned char domain = InterfaceDataManager::getInstance()->block.cfg.Domain;
    ptp_time_t rxTime = rxTimestamp;
    PTPMsgPathDelayResp response(domain);
    response.service = service;
    response.processOutgoing(this, &rxTime);
    ptp_time_t txTime{};
    service->transmit(response.data(), static_cast<int>(wire::messageLength(response.data())),
                      &txTime);
    PTPMsgPathDelayRespFollowUp followUp(domain);
    followUp.service = service;
    followUp.processOutgoing(&response, &txTime);
    ptp_time_t ignoredTime{};
    service->transmit(followUp.data(), static_cast<int>(wire::messageLength(followUp.data())),
                      &ignoredTime);
    return 1;
}

unsigned int PTPMsgPathDelayResp::processOutgoing(PTPMessage* request, ptp_time_t* rxTimestamp) {
    const MutexLock lock(mutex_);
    std::memcpy(buffer_, request->data(), wire::kPdelayLength);
    buffer_[wire::kTransportAndType] = wire::kTransportSpecific | wire::kPdelayResp;
    buffer_[wire::kFlags] = wire::kTwoStepFlag;
    std::memcpy(buffer_ + wire::kRequestingClockIdentity,
                request->data() + wire::kSourceClockIdentity, kPortIdentitySize);
    std::memcpy(buffer_ + wire::kSourceClockIdentity, BuildPTPClockIdentityFromMacAdress(service),
                wire::kClockIdentitySize);
    buffer_[wire::kLogMessageInterval] = wire::kLogIntervalUnknown;
    wire::storeTimestamp(buffer_ + wire::kTimestamp, *rxTimestamp);
    return 1;
}

unsigned int PTPMsgPathDelayRespFollowUp::processOutgoing(PTPMessage* response,
                                                          ptp_time_t* txTimestamp) {
    const gPtpTimeDataStruct* const record = OSipc::instance(GetInterfaceName(service));
    std::memcpy(buffer_, response->data(), wire::kPdelayLength);
    buffer_[wire::kTransportAndType] = wire::kTransportSpecific | wire::kPdelayRespFollowUp;
    wire::storeTimestamp(buffer_ + wire::kTimestamp, *txTimestamp);
    buffer_[wire::kLogMessageInterval] = wire::kLogIntervalUnknown;
    buffer_[wire::kFlags] = static_cast<unsigned char>(buffer_[wire::kFlags] & ~wire::kTwoStepFlag);
    storeCorrectionInHostOrder(
        buffer_, record != nullptr ? responseCorrection(*record, toNs(*txTimestamp)) : 0);
    return 1;
}
