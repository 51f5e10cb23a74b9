#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/simulate/Scenario.h"

namespace simulate {

/** One thing to do to one node at one instant. */
struct Step {
    enum class Kind { kStart, kEvent, kTakeBack };

    std::uint64_t atNs = 0;
    Kind kind = Kind::kEvent;
    std::string node;
    const Event* event = nullptr; /**< none for the start of a node */
};

/** Everything that happens, in its order: by time; at one instant starts first, then as the
 *  scenario has it. The scenario must outlive it. */
std::vector<Step> timelineOf(const Scenario& scenario);

/** What an event does, as the scenario says it: "fault stamp-lost", "step_ns -5". */
std::string describe(const Event& event);

}  // namespace simulate
