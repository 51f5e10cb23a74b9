#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/simulate/Limits.h"
#include "tools/simulate/Scenario.h"
#include "tools/simulate/StatusLines.h"

namespace simulate {

/** What the closing table says of a run. */
struct RunSummary {
    std::string verdict; /**< held, broken, failed, interrupted or not begun */
    /** What broke or failed, "FILE:LINE: ..." */
    std::vector<std::string> complaints;
    std::vector<std::string> remarks; /**< that change no verdict */
    std::size_t bounds = 0;           /**< that were judged */
    std::size_t held = 0;             /**< of those */
    /** The node whose error has the greatest p99, over the whole run; empty where none was sampled,
     *  and then there are no figures either. */
    std::string node;
    std::optional<double> p50, p99, max;
};

/** All that a run gave, in the order of the scenario. Nothing in it differs when the run is
 *  repeated. */
struct RunRecord {
    const Scenario* scenario = nullptr;
    std::uint64_t seed = 0;
    std::vector<NodeResult> results;
    std::vector<Judgement> judgements;
    std::vector<std::string> failures;
};

RunSummary summaryOf(const RunRecord& record);

/** What report.json holds. */
Json reportOf(const RunRecord& record);

/** For the way from the process that runs to the one that tells. */
Json toJson(const RunSummary& summary);
RunSummary summaryFrom(const Json& json);

}  // namespace simulate
