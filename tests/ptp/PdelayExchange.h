#pragma once

#include "tests/ptp/Handlers.h"

/** Requests of the fake interface and the answers to them. */
class PdelayExchange : public Handlers {
protected:
    struct Times {
        unsigned long long t1, t2, t3, t4;
    };

    /** Sends a request that is stamped t1. */
    void request(PTPMsgPathDelayReq& message, unsigned long long t1);

    unsigned int respond(unsigned int sequenceId, unsigned long long t2, unsigned long long t4,
                         unsigned short port = kPort);

    unsigned int followUp(unsigned int sequenceId, unsigned long long t3,
                          unsigned short port = kPort);

    /** A whole exchange of a request object; returns what its follow-up prints. */
    std::string exchange(PTPMsgPathDelayReq& message, const Times& times,
                         unsigned short port = kPort);
};
