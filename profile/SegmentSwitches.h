#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* Whose the segment is, and what happens when it cannot be had. */
namespace segment_switches {

/** Puts the steps that the profile asks for in place. Before the threads start. */
void install(const TSynProfile& profile);

}  // namespace segment_switches
