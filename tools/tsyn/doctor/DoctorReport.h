#pragma once

#include <string>

#include "tools/tsyn/doctor/Gates.h"

namespace tsyn::doctor {

/** A line for each gate, one more with the next step where it failed, and the summary. */
std::string doctorText(const Evidence& evidence, const std::vector<Judgement>& judgements,
                       bool coloured);

/** The same as one JSON object; doc/doctor.md describes it. */
std::string doctorJson(const Evidence& evidence, const std::vector<Judgement>& judgements);

/** "all is well: ...", or the first gate that failed, and whether there is time all the same. */
std::string summaryOf(const Evidence& evidence, const std::vector<Judgement>& judgements);

}  // namespace tsyn::doctor
