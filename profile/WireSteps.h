#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* What is sent and what is believed. */
namespace wire_steps {

/** Puts the steps that the profile asks for in place. Before the threads start. */
void install(const TSynProfile& profile);

}  // namespace wire_steps
