#include "profile/TimeSteps.h"

#include "platform/CardSteps.h"
#include "profile/Answers.h"
#include "profile/CrossTimestamps.h"
#include "profile/RobustDelay.h"
#include "profile/RobustTime.h"
#include "profile/Stamps.h"
#include "ptp/ProtocolSteps.h"
#include "timebase/TimeChanges.h"
#include "timebase/TimeConversion.h"

namespace {

/** Nobody can use a second message that does not know when the first one left. */
bool isStamped(const ptp_time_t& txTime) {
    return toNs(txTime) != 0;
}

void installStamps(bool matched) {
    cardSteps.sendFrame = matched ? stamps::sendFrame : sendFrameAfterPhcRead;
    cardSteps.transmitTimestamp = matched ? stamps::transmitTimestamp : getTxTimestamp;
    protocolSteps.isSent = matched ? isStamped : sentOrNot;
}

void installTime(bool robust) {
    protocolSteps.noteArrival = robust ? robust_time::noteNothing : pauseForCrossTimestamp;
    protocolSteps.takesSync = robust ? robust_time::isFirstOfItsKind : takesEverySync;
    protocolSteps.useSyncPair = robust ? robust_time::useSyncPair : useSuccessivePairs;
    protocolSteps.publishMasterTime =
        robust ? robust_time::publishMasterTime : publishClockReadings;
    timeChanges.hostTimeNs = robust ? robust_time::hostTimeNs : currentTimeNs;
    protocolSteps.noteSyncTurn = robust ? robust_time::logUnknownTxMode : logTxMode;
}

void installDelay(bool robust) {
    robust_delay::exchangeIsDisputed = answers::exchangeIsDisputed;
    protocolSteps.noteResponse = robust ? robust_delay::leaveResponse : noteClocksAtResponse;
    protocolSteps.checkResponse = robust ? robust_delay::checkNothing : reportImpossibleTimes;
    protocolSteps.usePdelayExchange = robust ? robust_delay::useExchange : averageDelays;
}

}  // namespace

void time_steps::install(const TSynProfile& profile) {
    installStamps(profile.matchedStamps != 0);
    cardSteps.crossTimestamp =
        profile.preciseCrossTimestamps != 0 ? cross_timestamps::best : narrowestOf25;
    installTime(profile.robustTime != 0);
    installDelay(profile.robustDelay != 0);
}

void time_steps::begin(const char* interfaceName) {
    robust_time::begin(interfaceName);
}

void time_steps::tick() {
    robust_time::tick();
}

unsigned int time_steps::usedPairs() {
    return robust_time::usedPairs();
}

void time_steps::end() {
    robust_time::end();
}
