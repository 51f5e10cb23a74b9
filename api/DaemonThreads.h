#pragma once

#include "base/Exports.h"
#include "include/ZebEthTimeSynSupportInterface.h"

/** Blocks SIGUSR1 in the calling thread and sleeps one second; returns at once when that fails. */
ZEB_ENTRY void DisableUsrSignals();

namespace daemon_threads {

/** What a Start finds. */
enum class StartClaim {
    kCreate,        ///< nothing yet; the caller is the one that creates the main thread
    kStillRunning,  ///< the threads run, or another Start is about to create them
    kRestart        ///< the threads were made before and are paused or gone
};
StartClaim claimStart();

/** Whether a Start has been claimed in this process, whatever became of it. */
bool wasStarted();

/** Creates the detached main thread for an instance block, after a claim to create. Without a
 *  thread to be had the claim is given back. */
void createMain(void* record);

/** A start is pending from its claim until the main thread sets runningState, the main thread ends
 *  or Stop comes. */
void endPendingStart();

}  // namespace daemon_threads
