#include <algorithm>
#include <array>
#include <map>

#include "tools/simulate/ReadParts.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

const std::map<std::string, std::uint32_t> kMessageTypes = {
    {"Sync", 0},        {"Delay_Req", 1},  {"Pdelay_Req", 2},
    {"Pdelay_Resp", 3}, {"Follow_Up", 8},  {"Pdelay_Resp_Follow_Up", 10},
    {"Announce", 11},   {"Signaling", 12},
};

template <typename Value>
std::vector<std::string> namesOf(const std::map<std::string, Value>& map) {
    std::vector<std::string> names;
    names.reserve(map.size());
    for (const auto& entry : map) {
        names.push_back(entry.first);
    }
    return names;
}

void readMessageType(Fields& fields, Event& event) {
    constexpr std::int64_t kMostType = 15;
    if (const auto name = fields.peek("type")) {
        const auto found = kMessageTypes.find(*name);
        if (found == kMessageTypes.end()) {
            fields.wrong("type", "'" + *name + "' is no message; write " +
                                     listed(namesOf(kMessageTypes)) + ", or a number 0 to 15");
        } else {
            event.fault.messageType = found->second;
        }
    } else if (const auto number = fields.integer("type", 0, kMostType)) {
        event.fault.messageType = static_cast<std::uint32_t>(*number);
    }
}

/** Keys that belong to one fault only. */
void readFaultDetails(Fields& fields, Event& event) {
    constexpr std::int64_t kMostLateNs = 3'600'000'000'000;
    constexpr std::int64_t kLastByte = 1500;
    constexpr std::int64_t kLastBit = 7;
    const bool late = event.value == "stamp-late";
    const bool corrupt = event.value == "corrupt";
    if (late && fields.require("late_ns", "write by how many nanoseconds")) {
        event.fault.lateNs =
            static_cast<std::uint64_t>(fields.integer("late_ns", 0, kMostLateNs).value_or(0));
    }
    if (corrupt && fields.require("byte", "write which byte of the message")) {
        event.fault.byte =
            static_cast<std::uint32_t>(fields.integer("byte", 0, kLastByte).value_or(0));
        event.fault.bit =
            static_cast<std::uint32_t>(fields.integer("bit", 0, kLastBit).value_or(0));
    }
}

void readFault(Fields& fields, Event& event) {
    event.value = fields.choice("fault", namesOf(virtual_i210::faultsByName())).value_or("drop");
    event.fault.fault = virtual_i210::faultsByName().at(event.value);
    readMessageType(fields, event);
    readFaultDetails(fields, event);
    const auto count = fields.integer("count", 1, virtual_i210::kUntilCleared - 1LL);
    const bool untilCleared = fields.flag("until_cleared").value_or(false);
    if (count && (untilCleared || event.forNs)) {
        fields.wrong("count", "there is until_cleared or for already; write one of them");
    }
    event.fault.count = untilCleared || event.forNs ? virtual_i210::kUntilCleared
                                                    : static_cast<std::uint32_t>(count.value_or(1));
}

void readRefuse(Fields& fields, Event& event) {
    constexpr std::int64_t kLastErrno = 4095;
    event.value = fields.choice("refuse", {"hwtstamp", "ethtool"}).value_or("hwtstamp");
    fields.require("errno", "write the error's number, such as 95; 0 allows it again");
    event.errorNumber = static_cast<int>(fields.integer("errno", 0, kLastErrno).value_or(0));
}

void readStep(Fields& fields, Event& event) {
    constexpr std::int64_t kMostStepNs = 8'000'000'000'000'000'000;
    event.stepNs = fields.integer("step_ns", -kMostStepNs, kMostStepNs).value_or(0);
}

void readRate(Fields& fields, Event& event) {
    constexpr double kMostPpb = 100'000'000;
    event.ratePpb = fields.number("rate_ppb", -kMostPpb, kMostPpb).value_or(0.0);
}

void readClear(Fields& fields, Event& event) {
    if (fields.flag("clear") == false) {
        fields.wrong("clear", "write clear = true");
    }
    if (event.forNs) {
        fields.wrong("for", "'clear' cannot be taken back; leave it out");
    }
}

void readProcess(Fields& fields, Event& event) {
    event.value =
        fields.choice("process", {"start", "stop", "kill", "restart"}).value_or("restart");
    if (event.forNs && event.value == "restart") {
        fields.wrong("for", "'restart' cannot be taken back; leave it out");
    }
}

void readSignal(Fields& fields, Event& event) {
    event.value =
        fields.choice("signal", {"HUP", "INT", "TERM", "KILL", "USR1", "USR2", "STOP", "CONT"})
            .value_or("STOP");
    if (event.forNs && event.value != "STOP") {
        fields.wrong("for", "only STOP can be taken back; leave it out");
    }
}

struct ActionKey {
    const char* key;
    Action action;
    bool onCard;
    void (*read)(Fields& fields, Event& event);
};

const std::array<ActionKey, 10> kActions{{
    {"fault", Action::kFault, true, readFault},
    {"link", Action::kLink, true,
     [](Fields& fields, Event& event) {
         event.value = fields.choice("link", {"down", "up"}).value_or("down");
     }},
    {"phc", Action::kPhc, true,
     [](Fields& fields, Event& event) {
         event.value = fields.choice("phc", {"hidden", "shown"}).value_or("hidden");
     }},
    {"refuse", Action::kRefuse, true, readRefuse},
    {"step_ns", Action::kStep, true, readStep},
    {"rate_ppb", Action::kRate, true, readRate},
    {"clear", Action::kClear, true, readClear},
    {"interface", Action::kInterface, true,
     [](Fields& fields, Event& event) {
         event.value = fields.choice("interface", {"down", "up"}).value_or("down");
     }},
    {"process", Action::kProcess, false, readProcess},
    {"signal", Action::kSignal, false, readSignal},
}};

void checkOwners(Fields& fields, const std::string& key, const Event& event,
                 const Scenario& scenario) {
    for (const std::string& name : event.nodes) {
        const Node* node = scenario.find(name);
        if (!node->ownsCard()) {
            fields.wrong(key,
                         "'" + name + "' has no card of its own; name '" + node->cardName + "'");
        }
    }
}

void readAction(Fields& fields, Event& event, const std::string& whom, const Scenario& scenario) {
    std::vector<std::string> all;
    std::vector<const ActionKey*> given;
    for (const ActionKey& action : kActions) {
        all.emplace_back(action.key);
        if (fields.has(action.key)) {
            given.push_back(&action);
        }
    }
    if (given.size() != 1) {
        fields.problems().add(fields.line(), "[[event]]: says " + std::to_string(given.size()) +
                                                 " things to do; write exactly one of " +
                                                 listed(all));
        for (const std::string& key : all) {
            fields.peek(key);
        }
        return;
    }
    event.action = given[0]->action;
    given[0]->read(fields, event);
    if (given[0]->onCard) {
        checkOwners(fields, whom, event, scenario);
    }
}

void readTimes(Fields& fields, Event& event, const Scenario& scenario) {
    constexpr std::int64_t kMostTimes = 1'000'000;
    fields.require("at", "write when, such as at = \"12s\"");
    event.atNs = fields.duration("at").value_or(0);
    event.forNs = fields.duration("for");
    event.times = static_cast<unsigned>(fields.integer("times", 1, kMostTimes).value_or(1));
    const auto every = fields.duration("every");
    event.everyNs = std::min(every.value_or(0), scenario.durationNs);
    if (fields.has("every") != fields.has("times")) {
        fields.wrong(fields.has("every") ? "every" : "times", "write both every and times");
    }
    if (every && event.forNs && event.times > 1 && *event.forNs >= *every) {
        fields.wrong("for", "lasts until the next repetition; write less than every");
    }
    const std::string end = secondsText(scenario.durationNs);
    if (event.atNs >= scenario.durationNs) {
        fields.wrong("at", "is not before the end of the run at " + end);
    } else if (event.endNs() > scenario.durationNs) {
        fields.wrong(
            event.times > 1 ? "times" : "for",
            "the event would end at " + secondsText(event.endNs()) + "; the run ends at " + end);
    }
}

void readEvent(const toml::table& table, Fields& top, Scenario& scenario) {
    Fields fields(table, "[[event]]", top.problems());
    Event event;
    event.line = fields.line();
    event.name = fields.text("name").value_or("");
    for (const Event& other : scenario.events) {
        if (!event.name.empty() && other.name == event.name) {
            fields.wrong("name", "'" + event.name + "' is taken by line " +
                                     std::to_string(other.line) + "; give each its own name");
        }
    }
    readTimes(fields, event, scenario);
    const std::string whom = fields.has("card") ? "card" : "node";
    if (fields.has("card") == fields.has("node")) {
        fields.problems().add(fields.line(), "[[event]]: write either card or node, to say whom");
    }
    event.nodes = readNodeNames(fields, whom, scenario);
    fields.peek(whom == "card" ? "node" : "card");
    readAction(fields, event, whom, scenario);
    fields.finish();
    scenario.events.push_back(event);
}

}  // namespace

void readEvents(Fields& top, Scenario& scenario) {
    for (const toml::table* table : top.tables("event")) {
        readEvent(*table, top, scenario);
    }
}

}  // namespace simulate
