#pragma once

#include "include/ZebEthTimeSynProfile.h"

/* The profile of the process: set once before the threads start, read by every step that it puts
 * in place. */
namespace profile {

/** The profile in force; that of deployed nodes unless a host set another. */
const TSynProfile& current();

/** What is wrong with a profile. */
struct Mistake {
    const char* name;  ///< of the member; null: nothing is wrong
    const char*
        needed;  ///< the switch that the member does nothing without; null: the value is wrong
};

/** The first mistake in a profile. */
Mistake mistakeIn(const TSynProfile& profile);

/** Makes a profile the one in force and puts its steps in place. Before the threads start. */
void apply(const TSynProfile& profile);

/** False for an unknown number. */
bool preset(unsigned int number, TSynProfile& profile);

/** False when there is no switch of that name or it cannot have the value. */
bool setSwitch(TSynProfile& profile, const char* name, int value);

/** Name and highest value of the switch of a number; null for none. */
const char* switchOf(unsigned int number, int& highest);

}  // namespace profile
