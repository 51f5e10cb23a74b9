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

/** Lets a received frame handle itself. Returns its messageType when it was handled, -1 when it was
 *  refused or ignored. */
int handleFrame(const InputPumpRecord& pump, unsigned char* frame, unsigned short length,
                const ptp_time_t& rxTime);

/** Receives frames and lets each handle itself, one after another, while runningState is set.
 *  Ends by cancellation only. */
ZEB_ENTRY void* InputThreader(void* record);

/** Sends one message each period while runningState is set; the first one at once when it is set
 *  on entry. Ends by cancellation only. */
ZEB_ENTRY void* OutputThreader(void* record);

/** Ends the wait of every sender, so that each transmits at once and begins its period anew. One
 *  that is transmitting at that moment notices nothing. Any thread. */
void wakeSenders();
