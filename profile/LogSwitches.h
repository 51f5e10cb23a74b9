#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* Which lines the log takes, and where to. */
namespace log_switches {

/** Puts the steps that the profile asks for in place. Before the threads start. */
void install(const TSynProfile& profile);

}  // namespace log_switches
