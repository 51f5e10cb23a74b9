#include "ptp/ProtocolSteps.h"

ProtocolSteps protocolSteps{
    admitsEverything,   pauseForCrossTimestamp, takesEverySync,
    useSuccessivePairs, reportImpossibleTimes,  averageDelays,
    sentOrNot,          publishClockReadings,   logTxMode,
};

bool admitsEverything(unsigned char* /*message*/, unsigned int /*length*/,
                      unsigned long long /*rxNs*/) {
    return true;
}

bool sentOrNot(const ptp_time_t& /*txTime*/) {
    return true;
}

bool takesEverySync(const ClockItemMembersType& /*item*/, unsigned int /*sequenceId*/,
                    unsigned long long /*rxNs*/) {
    return true;
}
