#include "tests/ptp/PdelayExchange.h"

void PdelayExchange::request(PTPMsgPathDelayReq& message, unsigned long long t1) {
    message.service = &service;
    platform().phcTimes = {1700000000123456789LL};
    platform().txTimes = {t1};
    EXPECT_EQ(1U, message.processOutgoing());
}

unsigned int PdelayExchange::respond(unsigned int sequenceId, unsigned long long t2,
                                     unsigned long long t4, unsigned short port) {
    return handleWithExtTime(pdelayAnswer(3, sequenceId, t2, port), t4);
}

unsigned int PdelayExchange::followUp(unsigned int sequenceId, unsigned long long t3,
                                      unsigned short port) {
    return handle(pdelayAnswer(10, sequenceId, t3, port));
}

std::string PdelayExchange::exchange(PTPMsgPathDelayReq& message, const Times& times,
                                     unsigned short port) {
    request(message, times.t1);
    const unsigned int sequence = clockItemOf({kPortKey.first, port}).pdelaySeqNo;
    EXPECT_EQ(1U, respond(sequence, times.t2, times.t4, port));
    platform().capabilities = {{1700000037000000000LL, 1700000000000000000LL, 37000000000LL, 1.5L}};
    return printedBy([&] { EXPECT_EQ(1U, followUp(sequence, times.t3, port)); });
}
