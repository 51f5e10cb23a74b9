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

/** Takes the interface that is to be served, after a claim to create. False (logged) when another
 *  daemon has it or its segment cannot be had; the claim is given back then. */
bool takeInterface(const char* interfaceName);

/** Creates the main thread for an instance block, after a claim to create, and waits until hosts
 *  can rely on it. Without a thread to be had the claim is given back. */
void createMain(void* record);

/** Ends all threads. Those of deployed nodes end on their own time and for good; with an event loop
 *  or a profile that lets the host start again, all are gone when it returns. Any thread. */
void endAll();

/** A start is pending from its claim until the main thread sets runningState, the main thread ends
 *  or Stop comes. */
void endPendingStart();

}  // namespace daemon_threads
