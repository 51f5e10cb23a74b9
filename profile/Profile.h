#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* The profile of the process: set once before the threads start, read by every step that it puts
 * in place. */
namespace profile {

/** The profile in force; that of deployed nodes unless a host set another. */
const TSynProfile& current();

/** What is wrong with a profile, or null: its size, or the name of the first switch with a value
 *  that it does not know. */
const char* mistakeIn(const TSynProfile& profile);

/** Makes a profile the one in force and puts its steps in place. Before the threads start. */
void apply(const TSynProfile& profile);

/** False for an unknown number. */
bool preset(unsigned int number, TSynProfile& profile);

/** False when there is no switch of that name or it cannot have the value. */
bool setSwitch(TSynProfile& profile, const char* name, int value);

}  // namespace profile
