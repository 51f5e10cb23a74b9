#pragma once

#include <string>

#include "tools/tsyn/doctor/Gates.h"

namespace tsyn::doctor {

/** A line for each gate, one more with the next step where it failed, and the summary. */
std::string doctorText(const std::vector<Judgement>& judgements, bool coloured);

/** The same as one JSON object; doc/doctor.md describes it. */
std::string doctorJson(const Evidence& evidence, const std::vector<Judgement>& judgements);

/** "all is well: ..." or "not synchronised, since: ..." with the first gate that failed. */
std::string summaryOf(const std::vector<Judgement>& judgements);

}  // namespace tsyn::doctor
