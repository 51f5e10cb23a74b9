#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* How stamps, clocks, rates and delays become time. */
namespace time_steps {

/** Puts the steps that the profile asks for in place. Before the threads start. */
void install(const TSynProfile& profile);

}  // namespace time_steps
