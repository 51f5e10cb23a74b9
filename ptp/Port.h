#pragma once

#include "api/InterfaceDataManager.h"
#include "platform/NetworkService.h"
#include "timebase/TimeRecord.h"
#include "timebase/osipc.h"

/** What the handling of one frame works on, fetched once. */
struct Port {
    NetworkService<sock>* service;
    char* name;         ///< of the interface; null without a service
    TimeRecord record;  ///< maps the segment on its first use in the process
};

inline Port portOf(NetworkService<sock>* service) {
    char* const name = service != nullptr ? GetInterfaceName(service) : nullptr;
    return {service, name, TimeRecord(name != nullptr ? OSipc::instance(name) : nullptr)};
}

/** The configuration and run-time block, or null when memory is exhausted. */
inline InstanceBlock* instanceBlock() {
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    return instance != nullptr ? &instance->block : nullptr;
}

/** A cross-timestamp for publication; also sets the base of the next one's rate. */
LocalClock readLocalClock(NetworkService<sock>* service);

/** A cross-timestamp whose result nobody needs: deployed nodes take one when a Sync and when a
 *  Follow_Up arrives, and the time that its 25 readings take is part of the handling time after
 *  which the system offset is measured. */
void pauseForCrossTimestamp(const char* interfaceName);
