#pragma once

#include "profile/PortIdentity.h"

/* Which master a slave believes: one, until it is silent. Input thread only. */
namespace masters {

/** Whether a whole message comes from the master believed or is of no master at all. The first Sync
 *  that the handlers would take decides whom to believe; three silent Sync intervals end that. */
bool admits(const unsigned char* message);

/** True for the port of the master believed. */
bool isBelieved(const PortKey& key);

}  // namespace masters
