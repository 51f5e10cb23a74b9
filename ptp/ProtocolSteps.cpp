#include "ptp/ProtocolSteps.h"

#include "ptp/SyncEstimate.h"

ProtocolSteps protocolSteps{
    admitsEverything,
    pauseForCrossTimestamp,
    takesEverySync,
    useSuccessivePairs,
    requestReadsPhc,
    noteClocksAtResponse,
    reportImpossibleTimes,
    averageDelays,
    sentOrNot,
    publishClockReadings,
    logTxMode,
    numberOfInterface,
    leaveAnswer,
    leaveMessage,
    masterRateRatio,
    sameSeconds,
};

bool admitsEverything(unsigned char* /*message*/, unsigned int /*length*/,
                      unsigned long long /*rxNs*/) {
    return true;
}

bool sentOrNot(const ptp_time_t& /*txTime*/) {
    return true;
}

unsigned short numberOfInterface(unsigned int interfaceIndex) {
    return static_cast<unsigned short>(interfaceIndex);
}

void leaveAnswer(unsigned char* /*answer*/, const unsigned char* /*request*/,
                 NetworkService<sock>* /*service*/) {}

void leaveMessage(unsigned char* /*message*/) {}

unsigned int sameSeconds(unsigned int systemSeconds) {
    return systemSeconds;
}

bool takesEverySync(const ClockItemMembersType& /*item*/, unsigned int /*sequenceId*/,
                    unsigned long long /*rxNs*/) {
    return true;
}
