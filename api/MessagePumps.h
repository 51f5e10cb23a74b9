#pragma once

#include <condition_variable>

#include "base/Exports.h"
#include "ptp/ptpclass.h"

/** Argument of an input pump; stays valid while the pump runs. */
struct InputPumpRecord {
    NetworkService<sock>* service;
    PTPMessageFactory* factory;
};

/** Argument of an output pump; stays valid while the pump runs. */
struct OutputPumpRecord {
    NetworkService<sock>* service;
    PTPMessage* message;
    std::condition_variable* condition;  ///< for a host that puts its own OutputThreader in place
    int periodMs;
};

/** Receives frames and lets each handle itself, one after another, while runningState is set.
 *  Ends by cancellation only. */
ZEB_EXPORT void* InputThreader(void* record);

/** Sends one message each period while runningState is set; the first one at once when it is set
 *  on entry. Ends by cancellation only. */
ZEB_EXPORT void* OutputThreader(void* record);

/** Ends the wait of every sender, so that each transmits at once and begins its period anew. One
 *  that is transmitting at that moment notices nothing. Any thread. */
void wakeSenders();
