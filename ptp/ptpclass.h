#pragma once

#include <pthread.h>

#include <utility>

#include "base/Exports.h"
#include "base/ptptime.h"
#include "platform/NetworkService.h"
#include "wire/ptpwire.h"

/** Clock identity (big-endian bytes as a signed value) and port number: key of the port table. */
using PortKey = std::pair<long long, unsigned short>;

/** One PTP message with its 256-byte buffer. Received objects live for one frame; the sending ones
 *  are templates that a role builds once. */
class ZEB_EXPORT PTPMessage {
public:
    PTPMessage(const PTPMessage&) = delete;
    PTPMessage& operator=(const PTPMessage&) = delete;
    ZEB_ENTRY virtual ~PTPMessage();

    /** messageType code of the class. The base version marks a programming error: above trace
     *  level 2 it ends the process. */
    ZEB_ENTRY virtual int getMsgNumericType();

    /** Handles a received message. Returns 1 when handled, 0 when rejected or ignored. */
    ZEB_ENTRY virtual unsigned int processIncoming() = 0;

    /** The port that this message is filed under: the requester's for responses to Pdelay_Req, the
     *  sender's for everything else. */
    ZEB_ENTRY PortKey retrievePortIdentity();

    /** The timestamp at offset 34, ns. */
    ZEB_ENTRY unsigned long long getPTPMessageTimestamp();

    /** Prints header and body, field by field, as far as messageLength covers them. Returns 0. */
    ZEB_ENTRY unsigned int msgDebugHeader();

    unsigned char* data() { return buffer_; }
    ptpv2hdr_t* header() { return reinterpret_cast<ptpv2hdr_t*>(buffer_); }

    NetworkService<sock>* service = nullptr;  ///< interface that the message belongs to

protected:
    /** An empty buffer, to be filled from a frame. */
    ZEB_INTERNAL PTPMessage();

    /** A message to send: preset header, domain checked (logged, kept). */
    ZEB_INTERNAL PTPMessage(unsigned char type, unsigned char domain);

    unsigned char* buffer_;  ///< owned, wire::kMessageBufferSize bytes, zeroed at creation

public:
    /** Fills in what the input pump knows of a received frame. */
    ZEB_INTERNAL void setArrival(NetworkService<sock>* port, const ptp_time_t& rxTime,
                                 unsigned short payloadLength) {
        service = port;
        rxTimestamp = rxTime;
        frameLength = payloadLength;
    }

    ptp_time_t rxTimestamp{};        ///< hardware receive time of a received frame
    unsigned short frameLength = 0;  ///< its payload length, for hosts that replace a handler
};

class ZEB_EXPORT PTPMsgSync final : public PTPMessage {
public:
    ZEB_INTERNAL PTPMsgSync() = default;
    ZEB_ENTRY ~PTPMsgSync() override;
    ZEB_INTERNAL PTPMsgSync(unsigned char domain, unsigned short portNumber);
    ZEB_ENTRY int getMsgNumericType() override;
    ZEB_ENTRY unsigned int processIncoming() override;

    /** Sends one Sync and its Follow_Up and refreshes the published record. Always 0. */
    ZEB_ENTRY unsigned int processOutgoing();

private:
    unsigned short sequence_ = 0;
};

class ZEB_EXPORT PTPMsgFollowUp final : public PTPMessage {
public:
    ZEB_INTERNAL PTPMsgFollowUp() = default;
    ZEB_ENTRY ~PTPMsgFollowUp() override;
    ZEB_INTERNAL explicit PTPMsgFollowUp(unsigned char domain);
    ZEB_ENTRY int getMsgNumericType() override;
    ZEB_ENTRY unsigned int processIncoming() override;

    /** Fills the Follow_Up of a Sync sent at *txTimestamp, which becomes the distributed time.
     *  Returns 1. Throws std::logic_error without an interface name. */
    ZEB_ENTRY unsigned int processOutgoing(PTPMessage* sync, ptp_time_t* txTimestamp);
};

class ZEB_EXPORT PTPMsgAnnounce final : public PTPMessage {
public:
    ZEB_INTERNAL PTPMsgAnnounce() = default;
    ZEB_ENTRY ~PTPMsgAnnounce() override;
    ZEB_INTERNAL PTPMsgAnnounce(unsigned char domain, unsigned short portNumber);
    ZEB_ENTRY int getMsgNumericType() override;
    ZEB_ENTRY unsigned int processIncoming() override;
    ZEB_ENTRY unsigned int processOutgoing();

private:
    unsigned short sequence_ = 0;
};

class ZEB_EXPORT PTPMsgPathDelayReq final : public PTPMessage {
public:
    ZEB_INTERNAL PTPMsgPathDelayReq() = default;
    ZEB_ENTRY ~PTPMsgPathDelayReq() override;
    ZEB_INTERNAL PTPMsgPathDelayReq(unsigned char domain, unsigned short portNumber);
    ZEB_ENTRY int getMsgNumericType() override;

    /** Answers a peer's request with Pdelay_Resp and Pdelay_Resp_Follow_Up. */
    ZEB_ENTRY unsigned int processIncoming() override;

    /** Sends the next request and notes its transmit time. Returns 1. */
    ZEB_ENTRY unsigned int processOutgoing();

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    unsigned short sequence_ = 0;
};

class ZEB_EXPORT PTPMsgPathDelayResp final : public PTPMessage {
public:
    ZEB_INTERNAL PTPMsgPathDelayResp() = default;
    ZEB_ENTRY ~PTPMsgPathDelayResp() override;
    ZEB_INTERNAL explicit PTPMsgPathDelayResp(unsigned char domain);
    ZEB_ENTRY int getMsgNumericType() override;

    /** Takes t2 and t4 of the outstanding request. 1 when accepted, 0 when stale or repeated. A
     *  receive time before the transmit time is reported for ever at trace level 1 and above. */
    ZEB_ENTRY unsigned int processIncoming() override;

    /** Fills the answer to a request received at *rxTimestamp. Returns 1. */
    ZEB_ENTRY unsigned int processOutgoing(PTPMessage* request, ptp_time_t* rxTimestamp);

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class ZEB_EXPORT PTPMsgPathDelayRespFollowUp final : public PTPMessage {
public:
    ZEB_INTERNAL PTPMsgPathDelayRespFollowUp() = default;
    ZEB_ENTRY ~PTPMsgPathDelayRespFollowUp() override;
    ZEB_INTERNAL explicit PTPMsgPathDelayRespFollowUp(unsigned char domain);
    ZEB_ENTRY int getMsgNumericType() override;

    /** Completes the exchange: link delay, time base. 0 when a timestamp is missing. */
    ZEB_ENTRY unsigned int processIncoming() override;

    /** Fills the follow-up of a response sent at *txTimestamp. Returns 1. */
    ZEB_ENTRY unsigned int processOutgoing(PTPMessage* response, ptp_time_t* txTimestamp);
};

/** Turns received frames into message objects. */
class ZEB_EXPORT PTPMessageFactory {
public:
    /** A new object that the caller owns, or null for a type that is not handled. At least
     *  messageLength bytes (at most 255) of the frame are read; a longer length is logged and
     *  leaves the object's buffer empty. */
    ZEB_ENTRY PTPMessage* getPTPMessageInstance(ptpv2hdr_t* frame);
};
