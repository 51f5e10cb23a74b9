#pragma once

#include "tools/tsyn/doctor/Gates.h"

/** Why a daemon that runs does nothing. Pure. */
namespace tsyn::doctor {

/** Another role was asked for than the daemon has. */
std::optional<Verdict> wrongRole(const Evidence& evidence);

/** Of a master whose Sync are missing. */
Verdict silentMaster(const Evidence& evidence);

/** Of a slave that neither took nor rejected a Sync. found: the figures of that. */
Verdict idleSlave(const Evidence& evidence, const std::string& found);

}  // namespace tsyn::doctor
