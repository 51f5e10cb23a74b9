#include "tools/simulate/Report.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tools/simulate/Statistics.h"
#include "tools/simulate/Timeline.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

/** Whole numbers without a point, others with at most three decimals. */
Json number(double value) {
    const double rounded = std::round(value * 1000.0) / 1000.0;
    if (rounded == std::floor(rounded) && std::fabs(rounded) < 1e15) {
        return static_cast<std::int64_t>(rounded);
    }
    return rounded;
}

Json numberOrNull(const std::optional<double>& value) {
    return value ? number(*value) : Json(nullptr);
}

std::optional<double> optionalFrom(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional<double>(json.get<double>());
}

/** What was sampled while the run lasted: nodes go on a little when they are ended. */
Statistics errorsOf(const NodeResult& result, double durationS) {
    std::vector<Timed> values;
    for (const Sample& sample : result.samples) {
        if (sample.valid && sample.atS <= durationS) {
            values.push_back({sample.atS, static_cast<double>(sample.errorNs)});
        }
    }
    return statisticsOf(values);
}

Json errorJson(const Statistics& errors) {
    return {{"count", errors.count},
            {"p50", number(errors.p50)},
            {"p99", number(errors.p99)},
            {"max", number(errors.max)},
            {"max_at_s", number(errors.maxAtS)},
            {"rms", number(errors.rms)},
            {"mean", number(errors.mean)}};
}

Json nodeJson(const Node& node, const NodeResult& result, double durationS) {
    Json json = {{"program", node.program}};
    if (node.isTsyn()) {
        json["role"] = node.role;
        json["abi"] = node.i386 ? "i386" : "x86_64";
    }
    json["starts_s"] = Json::array();
    for (const double startS : result.startsS) {
        json["starts_s"].push_back(number(startS));
    }
    if (!node.truth.empty()) {
        json["truth"] = node.truth;
        json["error_ns"] = errorJson(errorsOf(result, durationS));
    }
    if (node.isTsyn()) {
        json["last_line"] = result.lines.empty() ? Json(nullptr) : result.lines.back().fields;
    }
    for (const auto& [name, value] : result.card) {
        json["card"][name.substr(name.find('.') + 1)] = value;
    }
    return json;
}

Json eventJson(const Event& event) {
    Json json = {{"line", event.line},
                 {"name", event.name},
                 {"nodes", event.nodes},
                 {"what", describe(event)},
                 {"at_s", number(secondsOf(event.atNs))}};
    if (event.times > 1) {
        json["every_s"] = number(secondsOf(event.everyNs));
        json["times"] = event.times;
    }
    json["for_s"] = event.forNs ? number(secondsOf(*event.forNs)) : Json(nullptr);
    return json;
}

Json judgementJson(const Judgement& judgement) {
    Json json = {{"line", judgement.limit->line},
                 {"node", judgement.node},
                 {"what", measureName(judgement.limit->measure)}};
    if (!judgement.limit->subject.empty()) {
        json["of"] = judgement.limit->subject;
    }
    json["bound"] = judgement.statistic;
    json["value"] = numberOrNull(judgement.value);
    if (judgement.atS) {
        json["at_s"] = number(*judgement.atS);
    }
    json["min"] = numberOrNull(judgement.bound.min);
    json["max"] = numberOrNull(judgement.bound.max);
    json["held"] = judgement.held;
    return json;
}

/** One line for each bound that broke; of a count of nodes, the first few are named. */
void complain(const RunRecord& record, std::vector<std::string>& complaints) {
    constexpr std::size_t kMostNamed = 3;
    std::map<std::pair<const Limit*, std::string>, std::size_t> broken;
    for (const Judgement& judgement : record.judgements) {
        const std::string where =
            record.scenario->file + ":" + std::to_string(judgement.limit->line) + ": ";
        if (!judgement.held && ++broken[{judgement.limit, judgement.statistic}] <= kMostNamed) {
            complaints.push_back(where + describe(judgement));
        }
    }
    for (const auto& [bound, count] : broken) {
        if (count > kMostNamed) {
            complaints.push_back(record.scenario->file + ":" + std::to_string(bound.first->line) +
                                 ": the same of " + std::to_string(count - kMostNamed) +
                                 " more nodes, which report.json names");
        }
    }
}

template <typename Items, typename Convert>
Json arrayOf(const Items& items, Convert convert) {
    Json json = Json::array();
    for (const auto& item : items) {
        json.push_back(convert(item));
    }
    return json;
}

}  // namespace

RunSummary summaryOf(const RunRecord& record) {
    RunSummary summary;
    summary.bounds = record.judgements.size();
    summary.held = static_cast<std::size_t>(
        std::count_if(record.judgements.begin(), record.judgements.end(),
                      [](const Judgement& judgement) { return judgement.held; }));
    for (const std::string& failure : record.failures) {
        summary.complaints.push_back(record.scenario->file + ": " + failure);
    }
    complain(record, summary.complaints);
    summary.verdict = !record.failures.empty()      ? "failed"
                      : !summary.complaints.empty() ? "broken"
                                                    : "held";
    for (const NodeResult& result : record.results) {
        const Statistics errors = errorsOf(result, secondsOf(record.scenario->durationNs));
        if (errors.count != 0 && (!summary.p99 || errors.p99 > *summary.p99)) {
            summary.node = result.name;
            summary.p50 = errors.p50;
            summary.p99 = errors.p99;
            summary.max = errors.max;
        }
    }
    return summary;
}

Json reportOf(const RunRecord& record) {
    const Scenario& scenario = *record.scenario;
    const double durationS = secondsOf(scenario.durationNs);
    Json nodes = Json::object();
    for (const NodeResult& result : record.results) {
        nodes[result.name] = nodeJson(*scenario.find(result.name), result, durationS);
    }
    return {{"scenario", scenario.name},
            {"file", scenario.file},
            {"seed", record.seed},
            {"duration_s", number(durationS)},
            {"epoch_ns", scenario.epochNs},
            {"verdict", summaryOf(record).verdict},
            {"failures", record.failures},
            {"nodes", nodes},
            {"events", arrayOf(scenario.events, eventJson)},
            {"limits", arrayOf(record.judgements, judgementJson)}};
}

Json toJson(const RunSummary& summary) {
    return {{"verdict", summary.verdict},
            {"complaints", summary.complaints},
            {"remarks", summary.remarks},
            {"bounds", summary.bounds},
            {"held", summary.held},
            {"node", summary.node},
            {"p50", numberOrNull(summary.p50)},
            {"p99", numberOrNull(summary.p99)},
            {"max", numberOrNull(summary.max)}};
}

RunSummary summaryFrom(const Json& json) {
    RunSummary summary;
    summary.verdict = json.at("verdict").get<std::string>();
    summary.complaints = json.at("complaints").get<std::vector<std::string>>();
    summary.remarks = json.at("remarks").get<std::vector<std::string>>();
    summary.bounds = json.at("bounds").get<std::size_t>();
    summary.held = json.at("held").get<std::size_t>();
    summary.node = json.at("node").get<std::string>();
    summary.p50 = optionalFrom(json.at("p50"));
    summary.p99 = optionalFrom(json.at("p99"));
    summary.max = optionalFrom(json.at("max"));
    return summary;
}

}  // namespace simulate
