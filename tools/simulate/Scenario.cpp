#include "tools/simulate/Scenario.h"

#include <algorithm>
#include <array>

namespace simulate {

const Node* Scenario::find(const std::string& name) const {
    const auto found = std::find_if(nodes.begin(), nodes.end(),
                                    [&](const Node& node) { return node.name == name; });
    return found == nodes.end() ? nullptr : &*found;
}

const char* measureName(Measure measure) {
    constexpr std::array<const char*, 10> kNames{"error", "offset",   "delay",   "rate",  "outside",
                                                 "width", "recovery", "counter", "state", "log"};
    return kNames[static_cast<std::size_t>(measure)];
}

}  // namespace simulate
