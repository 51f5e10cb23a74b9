#pragma once

#include "ptp/Port.h"
#include "ptp/clockitems.h"

/* Published time as lines over a second, of a slave and of a master. */
namespace robust_time {

/** As ProtocolSteps::noteArrival. */
void noteNothing(const char* interfaceName);

/** As ProtocolSteps::takesSync: a Sync that the network doubled tells its second arrival. */
bool isFirstOfItsKind(const ClockItemMembersType& item, unsigned int sequenceId,
                      unsigned long long rxNs);

/** As ProtocolSteps::useSyncPair. */
void useSyncPair(Port& port, const unsigned char* followUp, unsigned long long originNs,
                 ClockItemMembersType& item);

/** As ProtocolSteps::publishMasterTime. */
void publishMasterTime(Port& port);

/** As TimeChanges::hostTimeNs: a master's own host is told what it set as soon as it did. */
long long hostTimeNs(const gPtpTimeDataStruct& record, unsigned long long systemNs);

/** As ProtocolSteps::noteSyncTurn: tells of a mode that it does not know. */
void logUnknownTxMode(unsigned int txMode);

/** Publishes that no master is known, unless there is a time already. */
void begin(const char* interfaceName);

/** Publishes anew what has changed without a Sync: the state, a line that was slowed, the bound.
 *  At most once a Sync interval; any thread of the daemon. */
void tick();

/** How many Sync pairs moved the time so far. From the thread that handles them. */
unsigned int usedPairs();

/** Publishes that the time is lost, since nobody will follow the master from now on. */
void end();

}  // namespace robust_time
