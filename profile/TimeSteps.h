#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* How stamps, clocks, rates and delays become time. */
namespace time_steps {

/** Puts the steps that the profile asks for in place. Before the threads start. */
void install(const TSynProfile& profile);

/** Tells readers that a slave is here. */
void begin(const char* interfaceName);

/** Lets readers see what changes without a Sync: holdover, a lost time, a bound that grew. At most
 *  once a Sync interval, from any thread of the daemon. */
void tick();

/** How many Sync pairs moved the time so far. From the thread that handles them. */
unsigned int usedPairs();

/** Tells readers that the daemon ends. */
void end();

}  // namespace time_steps
