#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/check/FollowUpChecker.h"

namespace tsyn {

/** One line: frame number, time of the capture, port, sequenceId, part, field, what is wrong. */
std::string findingLine(const Finding& finding);

/** The lines of all findings. CRCs none of which is right have one cause, and get one line. */
std::vector<std::string> findingLines(const CheckResult& result);

/** What the capture held and what the checks came to, a few lines. */
std::string checkSummary(const std::string& file, const CheckResult& result);

/** The same and all findings as one JSON object. */
std::string checkJson(const std::string& file, const CheckResult& result);

}  // namespace tsyn
