#pragma once

#include <string>

#include "tools/tsyn/run/RunOptions.h"

namespace tsyn {

/** Has this process's daemon, which runs with these options, do what a request asks for, and
 * answers it. */
std::string answerSettingRequest(const std::string& request, const RunOptions& options);

}  // namespace tsyn
