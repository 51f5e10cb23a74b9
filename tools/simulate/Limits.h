#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/simulate/Samples.h"
#include "tools/simulate/Scenario.h"
#include "tools/simulate/StatusLines.h"

namespace simulate {

/** What a run left of one node. */
struct NodeResult {
    std::string name;
    std::vector<double> startsS; /**< when it was started */
    std::vector<Sample> samples;
    std::vector<StatusLine> lines;
    std::map<std::string, std::uint64_t> card; /**< "card.tx_timestamps" and the others */
    std::string log;                           /**< file */
};

/** One bound of a limit, held against one node. */
struct Judgement {
    const Limit* limit = nullptr;
    std::string node;
    std::string statistic; /**< p99, within, value, ... */
    Bound bound;
    std::optional<double> value; /**< nothing: there was nothing to judge */
    std::optional<double> atS;   /**< of the greatest error */
    bool held = false;
};

/** In the order of the scenario. */
std::vector<Judgement> judge(const Scenario& scenario, const std::vector<NodeResult>& results);

/** "slave error p99: 345 ns at 23.4 s, at most 300 ns is allowed" */
std::string describe(const Judgement& judgement);

}  // namespace simulate
