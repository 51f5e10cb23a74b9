#include "tools/tsyn/doctor/DoctorReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tsyn::doctor {
namespace {

using Json = nlohmann::ordered_json;

struct Look {
    const char* text;
    const char* key;
    const char* colour;
};

const Look& lookOf(Outcome outcome) {
    static constexpr Look kPassed = {"PASS", "pass", "\033[32m"};
    static constexpr Look kFailed = {"FAIL", "fail", "\033[1;31m"};
    static constexpr Look kSkipped = {"SKIP", "skip", "\033[33m"};
    switch (outcome) {
    case Outcome::kPass:
        return kPassed;
    case Outcome::kFail:
        return kFailed;
    default:
        return kSkipped;
    }
}

std::ptrdiff_t countOf(const std::vector<Judgement>& judgements, Outcome outcome) {
    return std::count_if(
        judgements.begin(), judgements.end(),
        [outcome](const Judgement& judgement) { return judgement.verdict.outcome == outcome; });
}

std::string lineOf(const Judgement& judgement, bool coloured) {
    constexpr std::size_t kNameWidth = 17;
    const Look& look = lookOf(judgement.verdict.outcome);
    std::string name = judgement.gate;
    name.resize(std::max(name.size(), kNameWidth), ' ');
    const std::string word =
        coloured ? look.colour + std::string(look.text) + "\033[0m" : look.text;
    std::string line = word + "  " + name + judgement.verdict.found + "\n";
    if (judgement.verdict.outcome == Outcome::kFail) {
        line += std::string(sizeof "PASS  " - 1 + kNameWidth, ' ') + "-> " +
                judgement.verdict.next + "\n";
    }
    return line;
}

}  // namespace

std::string summaryOf(const std::vector<Judgement>& judgements) {
    if (const Judgement* failed = firstFailed(judgements)) {
        return "not synchronised, since: " + failed->gate + ": " + failed->verdict.found;
    }
    return "all is well: " + std::to_string(countOf(judgements, Outcome::kPass)) +
           " gates passed, " + std::to_string(countOf(judgements, Outcome::kSkip)) + " skipped";
}

std::string doctorText(const std::vector<Judgement>& judgements, bool coloured) {
    std::string text;
    for (const Judgement& judgement : judgements) {
        text += lineOf(judgement, coloured);
    }
    return text + summaryOf(judgements) + "\n";
}

std::string doctorJson(const Evidence& evidence, const std::vector<Judgement>& judgements) {
    Json gates = Json::array();
    for (const Judgement& judgement : judgements) {
        const Verdict& verdict = judgement.verdict;
        gates.push_back(
            {{"gate", judgement.gate},
             {"result", lookOf(verdict.outcome).key},
             {"found", verdict.found},
             {"next", verdict.outcome == Outcome::kFail ? Json(verdict.next) : Json(nullptr)}});
    }
    const Judgement* const failed = firstFailed(judgements);
    const Json json = {{"interface", evidence.expected.interfaceName},
                       {"role", evidence.expected.master ? "master" : "slave"},
                       {"listened_s", evidence.wire.listenedS},
                       {"ok", failed == nullptr},
                       {"first_failed", failed == nullptr ? Json(nullptr) : Json(failed->gate)},
                       {"summary", summaryOf(judgements)},
                       {"gates", gates}};
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tsyn::doctor
