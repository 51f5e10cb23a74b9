#include "tools/simulate/Limits.h"

#include <algorithm>
#include <fstream>
#include <regex>

#include "tools/simulate/Statistics.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

struct Window {
    double fromS = 0.0;
    double toS = 0.0;

    bool holds(double atS) const { return atS >= fromS && atS <= toS; }
};

Window windowOf(const Limit& limit) {
    return {secondsOf(limit.fromNs), secondsOf(limit.toNs)};
}

std::vector<Timed> errorsIn(const NodeResult& result, const Window& window) {
    std::vector<Timed> values;
    for (const Sample& sample : result.samples) {
        if (sample.valid && window.holds(sample.atS)) {
            values.push_back({sample.atS, static_cast<double>(sample.errorNs)});
        }
    }
    return values;
}

std::vector<Timed> boundsIn(const NodeResult& result, const Window& window, Measure measure) {
    std::vector<Timed> values;
    for (const Sample& sample : result.samples) {
        if (sample.valid && sample.bounds && window.holds(sample.atS)) {
            const std::int64_t ns =
                measure == Measure::kOutside ? sample.bounds->outsideNs : sample.bounds->widthNs;
            values.push_back({sample.atS, static_cast<double>(ns)});
        }
    }
    return values;
}

std::vector<Timed> reportedIn(const NodeResult& result, const Window& window,
                              const std::string& name) {
    std::vector<Timed> values;
    for (const StatusLine& line : result.lines) {
        const auto value = numberIn(line.fields, name);
        if (value && window.holds(line.atS) && line.fields.value("event", "") == "status") {
            values.push_back({line.atS, *value});
        }
    }
    return values;
}

void judgeStatistics(const Limit& limit, const NodeResult& result,
                     std::vector<Judgement>& judgements) {
    const Window window = windowOf(limit);
    std::vector<Timed> values;
    if (limit.measure == Measure::kError) {
        values = errorsIn(result, window);
    } else if (limit.measure == Measure::kOutside || limit.measure == Measure::kWidth) {
        values = boundsIn(result, window, limit.measure);
    } else {
        values = reportedIn(result, window,
                            limit.measure == Measure::kOffset  ? "offset_ns"
                            : limit.measure == Measure::kDelay ? "link_delay_ns"
                                                               : "rate_ppm");
    }
    const Statistics statistics = statisticsOf(values);
    for (const auto& [name, bound] : limit.bounds) {
        Judgement judgement{&limit, result.name, name, bound, statistics.called(name), {}, false};
        if (name == "max" && statistics.count != 0) {
            judgement.atS = statistics.maxAtS;
        }
        judgements.push_back(judgement);
    }
}

/** Of the last line up to an instant that has the number. */
std::optional<double> lastNumber(const NodeResult& result, const std::string& name, double toS,
                                 bool inclusive) {
    std::optional<double> last;
    for (const StatusLine& line : result.lines) {
        if (line.atS < toS || (inclusive && line.atS == toS)) {
            const auto value = numberIn(line.fields, name);
            last = value ? value : last;
        }
    }
    return last;
}

std::optional<double> counterOf(const Limit& limit, const NodeResult& result, bool toTheEnd) {
    const auto card = result.card.find(limit.subject);
    if (card != result.card.end()) {
        return static_cast<double>(card->second);
    }
    const Window window = windowOf(limit);
    // The closing line comes when the run is over already.
    constexpr double kForever = 1e18;
    const auto last = lastNumber(result, limit.subject, toTheEnd ? kForever : window.toS, true);
    if (!last) {
        return std::nullopt;
    }
    return *last - lastNumber(result, limit.subject, window.fromS, false).value_or(0.0);
}

/** 1 when the last line of the window says so, 0 when it says another state. */
std::optional<double> isInState(const Limit& limit, const NodeResult& result) {
    const Window window = windowOf(limit);
    std::optional<double> is;
    for (const StatusLine& line : result.lines) {
        if (window.holds(line.atS)) {
            is = line.fields.value("state", "") == limit.subject ? 1.0 : 0.0;
        }
    }
    return is;
}

std::optional<double> matchingLines(const Limit& limit, const NodeResult& result) {
    std::ifstream stream(result.log);
    if (!stream) {
        return std::nullopt;
    }
    const std::regex expression(limit.subject, std::regex::optimize);
    double count = 0.0;
    for (std::string line; std::getline(stream, line);) {
        count += std::regex_search(line, expression) ? 1.0 : 0.0;
    }
    return count;
}

Judgement judgeSingle(const Scenario& scenario, const Limit& limit, const NodeResult& result) {
    Judgement judgement;
    judgement.limit = &limit;
    judgement.node = result.name;
    if (limit.measure == Measure::kState) {
        judgement.statistic = limit.subject;
        judgement.bound = {1.0, 1.0};
        judgement.value = isInState(limit, result);
        return judgement;
    }
    judgement.statistic = limit.bounds[0].first;
    judgement.bound = limit.bounds[0].second;
    if (limit.measure == Measure::kRecovery) {
        judgement.value = recoveryS(result.samples, secondsOf(limit.fromNs), secondsOf(limit.toNs),
                                    limit.belowNs, secondsOf(limit.holdNs));
    } else if (limit.measure == Measure::kCounter) {
        judgement.value = counterOf(limit, result, limit.toNs == scenario.durationNs);
    } else {
        judgement.value = matchingLines(limit, result);
    }
    return judgement;
}

const char* unitOf(const Judgement& judgement) {
    if (judgement.statistic == "count") {
        return "";
    }
    switch (judgement.limit->measure) {
    case Measure::kError:
    case Measure::kOffset:
    case Measure::kDelay:
    case Measure::kOutside:
    case Measure::kWidth:
        return " ns";
    case Measure::kRate:
        return " ppm";
    case Measure::kRecovery:
        return " s";
    default:
        return "";
    }
}

std::string wanted(const Bound& bound, const char* unit) {
    if (bound.min && bound.max) {
        return numberText(*bound.min) + " to " + numberText(*bound.max) + unit;
    }
    return bound.min ? "at least " + numberText(*bound.min) + unit
                     : "at most " + numberText(bound.max.value_or(0.0)) + unit;
}

}  // namespace

std::vector<Judgement> judge(const Scenario& scenario, const std::vector<NodeResult>& results) {
    std::vector<Judgement> judgements;
    for (const Limit& limit : scenario.limits) {
        for (const std::string& node : limit.nodes) {
            const auto result =
                std::find_if(results.begin(), results.end(),
                             [&](const NodeResult& other) { return other.name == node; });
            if (limit.measure <= Measure::kWidth) {
                judgeStatistics(limit, *result, judgements);
            } else {
                judgements.push_back(judgeSingle(scenario, limit, *result));
            }
        }
    }
    for (Judgement& judgement : judgements) {
        judgement.held = judgement.value && judgement.bound.holds(*judgement.value);
    }
    return judgements;
}

std::string describe(const Judgement& judgement) {
    const Limit& limit = *judgement.limit;
    const std::string what = judgement.node + " " + measureName(limit.measure);
    if (limit.measure == Measure::kState) {
        return what + ": is " + (judgement.value ? "another" : "not told") + ", '" + limit.subject +
               "' is allowed";
    }
    const char* unit = unitOf(judgement);
    std::string text = what;
    if (limit.measure == Measure::kCounter || limit.measure == Measure::kLog) {
        text += " '" + limit.subject + "'";
    } else {
        text += " " + judgement.statistic;
    }
    const bool never = limit.measure == Measure::kRecovery;
    text += ": " + (judgement.value ? numberText(*judgement.value) + unit
                                    : std::string(never ? "never" : "nothing to judge"));
    if (judgement.atS) {
        text += " at " + numberText(*judgement.atS) + " s";
    }
    return text + ", " + wanted(judgement.bound, unit) + " is allowed";
}

}  // namespace simulate
