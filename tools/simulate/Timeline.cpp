#include "tools/simulate/Timeline.h"

#include <algorithm>

#include "tools/simulate/Units.h"

namespace simulate {

std::vector<Step> timelineOf(const Scenario& scenario) {
    std::vector<Step> steps;
    for (const Node& node : scenario.nodes) {
        if (node.startNs) {
            steps.push_back({*node.startNs, Step::Kind::kStart, node.name, nullptr});
        }
    }
    for (const Event& event : scenario.events) {
        for (unsigned i = 0; i < event.times; ++i) {
            const std::uint64_t atNs = event.atNs + i * event.everyNs;
            for (const std::string& node : event.nodes) {
                steps.push_back({atNs, Step::Kind::kEvent, node, &event});
                if (event.forNs) {
                    steps.push_back({atNs + *event.forNs, Step::Kind::kTakeBack, node, &event});
                }
            }
        }
    }
    std::stable_sort(steps.begin(), steps.end(),
                     [](const Step& a, const Step& b) { return a.atNs < b.atNs; });
    return steps;
}

std::string describe(const Event& event) {
    switch (event.action) {
    case Action::kFault:
        return "fault " + event.value;
    case Action::kLink:
        return "link " + event.value;
    case Action::kPhc:
        return "phc " + event.value;
    case Action::kRefuse:
        return "refuse " + event.value + " " + std::to_string(event.errorNumber);
    case Action::kStep:
        return "step_ns " + std::to_string(event.stepNs);
    case Action::kRate:
        return "rate_ppb " + numberText(event.ratePpb);
    case Action::kClear:
        return "clear";
    case Action::kInterface:
        return "interface " + event.value;
    case Action::kProcess:
        return "process " + event.value;
    case Action::kSignal:
        return "signal " + event.value;
    }
    return {};
}

}  // namespace simulate
