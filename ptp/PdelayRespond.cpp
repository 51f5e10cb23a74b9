#include <cstring>

#include "base/MutexLock.h"
#include "ptp/Port.h"
#include "ptp/ProtocolSteps.h"
#include "ptp/ptpclass.h"
#include "timebase/TimeConversion.h"

namespace {

/** Host byte order, the one field on the wire that is not big-endian: deployed requesters of this
 *  system swap it on reading. */
void storeCorrectionInHostOrder(unsigned char* message, long long correction) {
    std::memcpy(message + wire::kCorrectionField, &correction, sizeof correction);
}

void finishAnswer(PTPMessage& answer, PTPMessage& request) {
    protocolSteps.finishAnswer(answer.data(), request.data(), request.service);
    protocolSteps.finish(answer.data());
}

}  // namespace

PTPMsgPathDelayResp::PTPMsgPathDelayResp(unsigned char domain)
    : PTPMessage(wire::kPdelayResp, domain) {}

PTPMsgPathDelayRespFollowUp::PTPMsgPathDelayRespFollowUp(unsigned char domain)
    : PTPMessage(wire::kPdelayRespFollowUp, domain) {}

unsigned int PTPMsgPathDelayReq::processIncoming() {
    const MutexLock lock(mutex_);
    const InstanceBlock* const block = instanceBlock();
    if (block == nullptr) {
        return 0;
    }
    const unsigned char domain = block->cfg.Domain;
    ptp_time_t rxTime = rxTimestamp;
    PTPMsgPathDelayResp response(domain);
    response.service = service;
    response.processOutgoing(this, &rxTime);
    finishAnswer(response, *this);
    ptp_time_t txTime{};
    service->transmit(response.data(), static_cast<int>(wire::messageLength(response.data())),
                      &txTime);
    if (!protocolSteps.isSent(txTime)) {
        return 1;
    }
    PTPMsgPathDelayRespFollowUp followUp(domain);
    followUp.service = service;
    followUp.processOutgoing(&response, &txTime);
    finishAnswer(followUp, *this);
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
                request->data() + wire::kSourceClockIdentity, wire::kPortIdentitySize);
    std::memcpy(buffer_ + wire::kSourceClockIdentity, BuildPTPClockIdentityFromMacAdress(service),
                wire::kClockIdentitySize);
    buffer_[wire::kLogMessageInterval] = wire::kLogIntervalUnknown;
    wire::storeTimestamp(buffer_ + wire::kTimestamp, *rxTimestamp);
    return 1;
}

unsigned int PTPMsgPathDelayRespFollowUp::processOutgoing(PTPMessage* response,
                                                          ptp_time_t* txTimestamp) {
    const gPtpTimeDataStruct* const record = portOf(service).record.published();
    std::memcpy(buffer_, response->data(), wire::kPdelayLength);
    buffer_[wire::kTransportAndType] = wire::kTransportSpecific | wire::kPdelayRespFollowUp;
    wire::storeTimestamp(buffer_ + wire::kTimestamp, *txTimestamp);
    buffer_[wire::kLogMessageInterval] = wire::kLogIntervalUnknown;
    buffer_[wire::kFlags] = static_cast<unsigned char>(buffer_[wire::kFlags] & ~wire::kTwoStepFlag);
    storeCorrectionInHostOrder(
        buffer_, record != nullptr ? responseCorrectionNs(*record, toNs(*txTimestamp)) : 0);
    return 1;
}
