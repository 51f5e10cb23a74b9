#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

enum class Outcome { kPass, kFail, kSkip };

struct Verdict {
    Outcome outcome = Outcome::kPass;
    std::string found; /**< the figure found; of a skipped gate, why it is skipped */
    std::string next;  /**< of a failed gate, the step to take */
};

inline Verdict passed(std::string found) {
    return {Outcome::kPass, std::move(found), {}};
}

inline Verdict failed(std::string found, std::string next) {
    return {Outcome::kFail, std::move(found), std::move(next)};
}

inline Verdict skipped(std::string reason) {
    return {Outcome::kSkip, std::move(reason), {}};
}

/** One condition of right time. Pure: everything is in the evidence. */
struct Gate {
    const char* name;
    /** Why it cannot be judged; empty: it can. */
    std::string (*obstacle)(const Evidence&);
    Verdict (*judge)(const Evidence&);
};

/** In the order in which they build on each other. */
const std::vector<Gate>& gates();

struct Judgement {
    std::string gate;
    Verdict verdict;
};

std::vector<Judgement> judgeAll(const Evidence& evidence);

/** The first gate that failed, or null. */
const Judgement* firstFailed(const std::vector<Judgement>& judgements);

}  // namespace tsyn::doctor
