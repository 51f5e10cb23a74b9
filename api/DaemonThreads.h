#pragma once

#include "base/Exports.h"
#include "include/ZebEthTimeSynSupportInterface.h"

/** Role bodies for one interface; return when the role could not start or its pumps have ended. */
ZEB_EXPORT void MasterThread(char* ifName);
ZEB_EXPORT void SlaveThread(char* ifName);

/** Blocks SIGUSR1 in the calling thread and sleeps one second; returns at once when that fails. */
ZEB_EXPORT void DisableUsrSignals();

/** Sets SOCK back to the value found when the main thread started, if there was one. */
void restoreSavedSock();

namespace daemon_threads {

/** True once the main thread has been created; stays so. */
bool wasStarted();

/** True from the creation of the main thread until it sets runningState, ends, or Stop comes. */
bool isStartPending();
void clearStartPending();

/** Creates the detached main thread for an instance block. */
void start(void* record);

enum class Thread { kMain, kInput, kSender, kAnnounce };

/** Cancels a thread if it was created and has not ended. */
void cancel(Thread thread);

}  // namespace daemon_threads
