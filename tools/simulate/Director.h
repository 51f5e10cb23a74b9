#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/simulate/Limits.h"
#include "tools/simulate/Nodes.h"
#include "tools/simulate/Scenario.h"
#include "tools/simulate/Timeline.h"
#include "tools/virtual_i210/Simulation.h"

namespace simulate {

/** Lets a run take its course: starts nodes, carries the events out, samples the clocks of programs
 *  that do not compare themselves, and ends everything. */
class Director {
public:
    /** What is given must outlive this. */
    Director(const Scenario& scenario, virtual_i210::Simulation& simulation, Nodes& nodes,
             const std::function<void(std::uint64_t)>& progress);

    /** Until the scenario's end, or until a node fails. */
    void run();

    /** The nodes' own samples by the runner. */
    void giveSamples(std::map<std::string, NodeResult>& results) const;
    const std::vector<std::string>& failures() const { return failures_; }

private:
    struct Sampler {
        const Node* node = nullptr;
        std::uint64_t startNs = 0;
        std::uint64_t count = 0;
        std::vector<Sample> samples;

        std::uint64_t nextNs() const;
    };

    std::uint64_t nextNs() const;
    void meet(std::uint64_t nowNs);
    void carryOut(const Step& step);
    void order(const Step& step);
    void orderProcess(const Step& step);
    void sample(Sampler& sampler);
    void endNodes();

    const Scenario& scenario_;
    virtual_i210::Simulation& simulation_;
    Nodes& nodes_;
    const std::function<void(std::uint64_t)>& progress_;
    std::vector<Step> steps_;
    std::size_t nextStep_ = 0;
    std::uint64_t nextTickNs_ = 0;
    std::vector<Sampler> samplers_;
    std::vector<std::string> failures_;
};

}  // namespace simulate
