#include "profile/TimeSteps.h"

#include "platform/CardSteps.h"
#include "ptp/ProtocolSteps.h"

namespace {

void noteNothing(const char* /*interfaceName*/) {}

}  // namespace

void time_steps::install(const TSynProfile& profile) {
    protocolSteps.noteArrival = profile.robustTime != 0 ? noteNothing : pauseForCrossTimestamp;
}
