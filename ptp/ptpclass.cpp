#include "ptp/ptpclass.h"

#include <cstring>
#include <memory>

#include "base/DbgLog.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
constexpr int kNumericTypeTraceLine = 113;

std::unique_ptr<PTPMessage> emptyMessage(unsigned int type) {
    switch (type) {
    case wire::kSync:
        return std::make_unique<PTPMsgSync>();
    case wire::kPdelayReq:
        return std::make_unique<PTPMsgPathDelayReq>();
    case wire::kPdelayResp:
        return std::make_unique<PTPMsgPathDelayResp>();
    case wire::kFollowUp:
        return std::make_unique<PTPMsgFollowUp>();
    case wire::kPdelayRespFollowUp:
        return std::make_unique<PTPMsgPathDelayRespFollowUp>();
    case wire::kAnnounce:
        return std::make_unique<PTPMsgAnnounce>();
    default:
        return nullptr;
    }
}

}  // namespace

// Zeroed, so that a handler of an over-long message meets an empty message and no old memory.
PTPMessage::PTPMessage() : buffer_(new unsigned char[wire::kMessageBufferSize]{}) {}

PTPMessage::PTPMessage(unsigned char type, unsigned char domain) : PTPMessage() {
    buffer_[wire::kTransportAndType] = wire::kTransportSpecific | type;
    buffer_[wire::kVersion] = wire::kVersionPtp;
    buffer_[wire::kDomainNumber] = domain;
    wire::store16(buffer_ + wire::kSourcePortNumber, 1);
    if (domain > wire::kMaxDomain) {
        ZEB_LOG(kError, "Invalid domain number ... :%d \n", domain);
    }
}

PTPMessage::~PTPMessage() {
    delete[] buffer_;
}

int PTPMessage::getMsgNumericType() {
    if (abortsOnTrace()) {
        fatalTraceLine("getMsgNumericType", kNumericTypeTraceLine);
    }
    return 0;
}

PortKey PTPMessage::retrievePortIdentity() {
    const unsigned int type = wire::messageType(buffer_);
    const bool answersRequest = type == wire::kPdelayResp || type == wire::kPdelayRespFollowUp;
    const unsigned char* const identity =
        buffer_ + (answersRequest ? wire::kRequestingClockIdentity : wire::kSourceClockIdentity);
    return {static_cast<long long>(wire::load64(identity)),
            static_cast<unsigned short>(wire::load16(identity + wire::kClockIdentitySize))};
}

unsigned long long PTPMessage::getPTPMessageTimestamp() {
    return toNs(wire::loadTimestamp(buffer_ + wire::kTimestamp));
}

PTPMsgSync::~PTPMsgSync() = default;
PTPMsgFollowUp::~PTPMsgFollowUp() = default;
PTPMsgAnnounce::~PTPMsgAnnounce() = default;
PTPMsgPathDelayReq::~PTPMsgPathDelayReq() = default;
PTPMsgPathDelayResp::~PTPMsgPathDelayResp() = default;
PTPMsgPathDelayRespFollowUp::~PTPMsgPathDelayRespFollowUp() = default;

int PTPMsgSync::getMsgNumericType() {
    return wire::kSync;
}
int PTPMsgFollowUp::getMsgNumericType() {
    return wire::kFollowUp;
}
int PTPMsgAnnounce::getMsgNumericType() {
    return wire::kAnnounce;
}
int PTPMsgPathDelayReq::getMsgNumericType() {
    return wire::kPdelayReq;
}
int PTPMsgPathDelayResp::getMsgNumericType() {
    return wire::kPdelayResp;
}
int PTPMsgPathDelayRespFollowUp::getMsgNumericType() {
    return wire::kPdelayRespFollowUp;
}

unsigned int PTPMsgAnnounce::processIncoming() {
    return 1;
}

PTPMessage* PTPMessageFactory::getPTPMessageInstance(ptpv2hdr_t* frame) {
    const unsigned char* const bytes = frame->octets;
    std::unique_ptr<PTPMessage> message = emptyMessage(wire::messageType(bytes));
    if (message == nullptr) {
        return nullptr;
    }
    const unsigned int length = wire::messageLength(bytes);
    if (length >= wire::kMessageBufferSize) {
        ZEB_LOG(kError, "Invalid messageLength received: %d ...\n", static_cast<int>(length));
    } else {
        std::memcpy(message->data(), bytes, length);
    }
    return message.release();
}
