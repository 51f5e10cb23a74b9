#pragma once

#include "ptp/LinkDelay.h"
#include "ptp/Port.h"
#include "ptp/clockitems.h"

/* The measured link delay behind its filter. */
namespace robust_delay {

/** Whether several ports answered the request with this sequenceId; in place of the one that always
 *  says no when somebody looks. */
extern bool (*exchangeIsDisputed)(unsigned int sequenceId);

/** As ProtocolSteps::checkResponse: impossible times are refused when the exchange is complete. */
void checkNothing(ClockItemMembersType& item);

/** As ProtocolSteps::noteResponse: the time since the exchange is not computed with. */
void leaveResponse(const char* interfaceName, ClockItemMembersType& item);

/** As ProtocolSteps::usePdelayExchange: kept back until no second answer can follow. */
void useExchange(Port& port, const unsigned char* respFollowUp, const PdelayTimes& times,
                 ClockItemMembersType& item);

/** Uses the exchange that is kept back when it is old enough at this PHC time; 0 when it is in any
 *  case. Any thread. */
void settle(TimeRecord record, unsigned long long phcNs);

/** Whether there is a measured delay, and by how much it may be wrong, ns. */
bool isKnown();
double doubt();

}  // namespace robust_delay
