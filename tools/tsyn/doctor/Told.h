#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** What a running `tsyn run` was told by its command line and its configuration file; nothing of
 *  another program, or where either cannot be read. */
Settings toldTo(int pid);

/** Of hexadecimal digits without a problem. */
DataIdList dataIdsOf(const std::string& text);

/** The same of a command line; its files lie in `folder` or, when they name their place, below
 *  `root`. */
Settings toldIn(const std::vector<std::string>& words, const std::string& folder,
                const std::string& root);

}  // namespace tsyn::doctor
