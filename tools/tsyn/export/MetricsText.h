#pragma once

#include <string>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/Owner.h"

namespace tsyn {

/** Of a daemon that was looked at, in Prometheus' text format 0.0.4. What is not known is left
 *  out. */
std::string metricsText(const std::string& source, const DaemonState& daemon, const Owner& owner,
                        int utcOffsetS);

/** While there is no record. */
std::string metricsTextWithout(const std::string& source);

}  // namespace tsyn
