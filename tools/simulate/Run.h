#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tools/simulate/Report.h"
#include "tools/simulate/Scenario.h"

namespace simulate {

/** How one run is to be done. */
struct RunSetup {
    std::uint64_t seed = 1;
    std::string results;     /**< folder, absolute, made anew */
    std::string buildFolder; /**< of this program and tsyn */
    bool picture = true;
};

/** Runs a scenario once, in this process, which is in namespaces of its own already, and writes
 *  everything. `progress` is told the simulated time in ns now and then. Throws
 *  std::exception when the run cannot be done. */
RunSummary runOnce(const Scenario& scenario, const RunSetup& setup,
                   const std::function<void(std::uint64_t)>& progress);

}  // namespace simulate
