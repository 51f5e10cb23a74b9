#pragma once

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** Asks the kernel and the driver about interface, clock and stamping. Changes nothing. Returns why
 *  nothing at all could be asked, empty otherwise. */
std::string collectCard(Evidence& evidence);

/** The capabilities in a text as of /proc/self/status. */
CapabilityFacts capabilitiesIn(const std::string& status);

/** Whether a text as of /proc/net/dev_mcast lists 01:80:C2:00:00:0E for the interface. */
bool listsGptpAddress(const std::string& list, const std::string& interfaceName);

}  // namespace tsyn::doctor
