#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/Owner.h"

namespace tsyn {

/** All that is known of a daemon at its latest look, with the names that doc/tsyn.md lists: those
 *  of `tsyn run --json` where both tell the same. What is not known is null. */
nlohmann::ordered_json daemonJson(const std::string& source, const DaemonState& daemon,
                                  const Owner& owner, int utcOffsetS);

}  // namespace tsyn
