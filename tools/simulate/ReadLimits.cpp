#include <algorithm>
#include <array>
#include <regex>

#include "tools/simulate/ReadParts.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

const std::vector<std::string> kStatistics = {"p50", "p99", "max", "rms", "mean", "count"};
const std::vector<std::string> kMeasures = {"error", "offset",   "delay",   "rate",  "outside",
                                            "width", "recovery", "counter", "state", "log"};
const std::vector<std::string> kCardCounters = {"card.ptp_frames_sent", "card.event_frames_sent",
                                                "card.tx_timestamps",   "card.rx_timestamps",
                                                "card.rx_fallbacks",    "card.frames_swallowed",
                                                "card.clock_readings",  "card.clock_adjustments"};

void readStatistics(Fields& fields, Limit& limit) {
    const std::string unit = limit.measure == Measure::kRate ? "ppm" : "nanoseconds";
    for (const std::string& name : kStatistics) {
        if (const auto bound = fields.bound(name, name == "mean", name == "count" ? "" : unit)) {
            limit.bounds.emplace_back(name, *bound);
        } else if (fields.has(name)) {
            return;
        }
    }
    if (limit.bounds.empty()) {
        fields.problems().add(fields.line(), "[[limit]]: bounds nothing; write one or more of " +
                                                 listed(kStatistics));
    }
}

void readOneBound(Fields& fields, const std::string& key, bool negative, Limit& limit) {
    fields.require(key, "write the most, or { min = A, max = B }");
    if (const auto bound = fields.bound(key, negative, "")) {
        limit.bounds.emplace_back(key, *bound);
    }
}

void readRecovery(Fields& fields, Limit& limit) {
    constexpr double kMostNs = 1e18;
    fields.require("after", "write the name of the event");
    fields.require("below_ns", "write which error is small enough");
    limit.belowNs = fields.number("below_ns", 0.0, kMostNs).value_or(0.0);
    limit.holdNs = fields.duration("hold").value_or(kNsPerSecond);
    fields.require("within", "write the longest time, such as \"1s\", or { min = A, max = B }");
    if (const auto bound = fields.durationBound("within")) {
        limit.bounds.emplace_back("within", *bound);
    }
}

void readCounter(Fields& fields, Limit& limit) {
    fields.require("counter", "write which, such as \"sync_accepted\"");
    limit.subject = fields.text("counter").value_or("");
    if (limit.subject.rfind("card.", 0) == 0 &&
        std::find(kCardCounters.begin(), kCardCounters.end(), limit.subject) ==
            kCardCounters.end()) {
        fields.wrong("counter", "'" + limit.subject + "' is no counter of a card; write " +
                                    listed(kCardCounters));
    }
    readOneBound(fields, "value", true, limit);
}

void readState(Fields& fields, Limit& limit) {
    const std::vector<std::string> states = {
        "starting", "no sync yet", "priming",   "synchronised", "rate refused", "stale",
        "sending",  "not sending", "no master", "acquiring",    "holdover",     "lost"};
    fields.require("is", "write a state, such as is = \"synchronised\"");
    limit.subject = fields.choice("is", states).value_or("");
}

void readLog(Fields& fields, Limit& limit) {
    fields.require("matches", "write a regular expression");
    limit.subject = fields.text("matches").value_or("");
    try {
        std::regex(limit.subject, std::regex::optimize);
    } catch (const std::regex_error&) {
        fields.wrong("matches", "is no regular expression; write one as of ECMAScript");
    }
    readOneBound(fields, "lines", false, limit);
}

/** False when it cannot be told what is bound. */
bool readWhat(Fields& fields, Limit& limit) {
    fields.require("what", "write " + listed(kMeasures));
    const auto what = fields.choice("what", kMeasures);
    if (what) {
        limit.measure = static_cast<Measure>(std::find(kMeasures.begin(), kMeasures.end(), *what) -
                                             kMeasures.begin());
    }
    return what.has_value();
}

void readBounds(Fields& fields, Limit& limit) {
    switch (limit.measure) {
    case Measure::kRecovery:
        return readRecovery(fields, limit);
    case Measure::kCounter:
        return readCounter(fields, limit);
    case Measure::kState:
        return readState(fields, limit);
    case Measure::kLog:
        return readLog(fields, limit);
    default:
        return readStatistics(fields, limit);
    }
}

std::string eventAdvice(const Scenario& scenario) {
    std::vector<std::string> names;
    for (const Event& event : scenario.events) {
        if (!event.name.empty()) {
            names.push_back(event.name);
        }
    }
    return names.empty() ? "none has a name; give the event one" : "write " + listed(names);
}

void readWindow(Fields& fields, Limit& limit, const Scenario& scenario) {
    bool told = false;
    limit.fromNs = fields.duration("from").value_or(0);
    limit.toNs = fields.duration("to").value_or(scenario.durationNs);
    if (const auto after = fields.text("after")) {
        const auto event = std::find_if(scenario.events.begin(), scenario.events.end(),
                                        [&](const Event& other) { return other.name == *after; });
        if (after->empty() || event == scenario.events.end()) {
            fields.wrong("after", "'" + *after + "' is no event; " + eventAdvice(scenario));
        } else {
            limit.fromNs = event->endNs();
            told = event->atNs >= scenario.durationNs || event->endNs() > scenario.durationNs;
        }
        if (fields.has("from")) {
            fields.wrong("from", "there is after already; write one of them");
        }
    }
    const bool log = limit.measure == Measure::kLog;
    if (log && (fields.has("from") || fields.has("to") || fields.has("after"))) {
        fields.problems().add(fields.line(),
                              "[[limit]]: a log has no window; leave from, to and "
                              "after out");
    } else if (!told && (limit.toNs > scenario.durationNs || limit.fromNs >= limit.toNs)) {
        const std::string key = fields.has("to") ? "to" : fields.has("from") ? "from" : "after";
        fields.wrong(key, "the window from " + secondsText(limit.fromNs) + " to " +
                              secondsText(limit.toNs) + " is empty or goes beyond the end at " +
                              secondsText(scenario.durationNs));
    }
}

/** Whether the nodes give what is to be judged. */
void checkSources(Fields& fields, const Limit& limit, const Scenario& scenario) {
    const bool samples = limit.measure == Measure::kError || limit.measure == Measure::kRecovery ||
                         limit.measure == Measure::kOutside || limit.measure == Measure::kWidth;
    const bool card = limit.measure == Measure::kCounter && limit.subject.rfind("card.", 0) == 0;
    const bool lines = !samples && !card && limit.measure != Measure::kLog;
    for (const std::string& name : limit.nodes) {
        const Node* node = scenario.find(name);
        if (samples && node->truth.empty()) {
            fields.wrong("what", "'" + name + "' has no error; give the node a truth");
            return;
        }
        if (lines && !node->isTsyn()) {
            fields.wrong("what", "'" + name +
                                     "' runs no tsyn; of other programs there are error, "
                                     "recovery, log and the counters of the card");
            return;
        }
    }
}

}  // namespace

void readLimits(Fields& top, Scenario& scenario) {
    for (const toml::table* table : top.tables("limit")) {
        Fields fields(*table, "[[limit]]", top.problems());
        Limit limit;
        limit.line = fields.line();
        fields.require("node", "write the name of a node");
        limit.nodes = readNodeNames(fields, "node", scenario);
        if (!readWhat(fields, limit)) {
            continue;  // which keys are right depends on it
        }
        readBounds(fields, limit);
        readWindow(fields, limit, scenario);
        checkSources(fields, limit, scenario);
        fields.finish();
        scenario.limits.push_back(limit);
    }
}

}  // namespace simulate
