#include "tools/tsyn/doctor/DoctorReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/tsyn/doctor/Published.h"

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

/** Broken between words where a terminal ends; what follows is indented. */
std::string folded(const std::string& text, std::size_t indent) {
    constexpr std::size_t kWidth = 80;
    std::istringstream words(text);
    std::string lines;
    std::size_t column = indent;
    for (std::string word; words >> word; column += word.size()) {
        std::string counted;
        // A number stays with what it counts.
        if (word.find_first_not_of("0123456789") == std::string::npos && words >> counted) {
            word += " " + counted;
        }
        if (lines.empty()) {
            lines = word;
        } else if (column + 1 + word.size() > kWidth) {
            lines += "\n" + std::string(indent, ' ') + word;
            column = indent;
        } else {
            lines += " " + word;
            ++column;
        }
    }
    return lines;
}

std::string lineOf(const Judgement& judgement, bool coloured) {
    constexpr std::size_t kNameWidth = 17;
    constexpr std::size_t kTextColumn = sizeof "PASS  " - 1 + kNameWidth;
    const Look& look = lookOf(judgement.verdict.outcome);
    std::string name = judgement.gate;
    name.resize(std::max(name.size(), kNameWidth), ' ');
    const std::string word =
        coloured ? look.colour + std::string(look.text) + "\033[0m" : look.text;
    std::string line = word + "  " + name + folded(judgement.verdict.found, kTextColumn) + "\n";
    if (judgement.verdict.outcome == Outcome::kFail) {
        const std::string arrow = "-> ";
        line += std::string(kTextColumn, ' ') + arrow +
                folded(judgement.verdict.next, kTextColumn + arrow.size()) + "\n";
    }
    return line;
}

}  // namespace

std::string summaryOf(const Evidence& evidence, const std::vector<Judgement>& judgements) {
    if (const Judgement* failed = firstFailed(judgements)) {
        const Published published = publishedState(evidence);
        if (published.isGood == false) {
            return published.state + ", since: " + failed->gate + ": " + failed->verdict.found;
        }
        return published.state + (published.isGood ? ", yet " : "; ") + failed->gate +
               " failed: " + failed->verdict.found;
    }
    return "all is well: " + std::to_string(countOf(judgements, Outcome::kPass)) +
           " gates passed, " + std::to_string(countOf(judgements, Outcome::kSkip)) + " skipped";
}

std::string doctorText(const Evidence& evidence, const std::vector<Judgement>& judgements,
                       bool coloured) {
    std::string text;
    for (const Judgement& judgement : judgements) {
        text += lineOf(judgement, coloured);
    }
    return text + summaryOf(evidence, judgements) + "\n";
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
                       {"state", publishedState(evidence).state},
                       {"summary", summaryOf(evidence, judgements)},
                       {"gates", gates}};
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tsyn::doctor
