#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/simulate/Commands.h"
#include "tools/simulate/Limits.h"
#include "tools/simulate/Scenario.h"
#include "tools/virtual_i210/Simulation.h"

namespace simulate {

/** The programs of a run: starts them, ends them, and notices when one ends by itself. */
class Nodes {
public:
    /** `cards` is the text of VIRTUAL_I210. What is given must outlive this. Throws
     *  std::runtime_error for a program that cannot be run. */
    Nodes(const Scenario& scenario, virtual_i210::Simulation& simulation, std::string cards,
          std::string buildFolder);
    /** Kills what still runs. */
    ~Nodes();
    Nodes(const Nodes&) = delete;
    Nodes& operator=(const Nodes&) = delete;

    /** Does nothing to a node that runs. */
    void start(const std::string& name);
    /** Sends a signal; one that ends programs lets the node's end be expected. Does nothing to a
     *  node that does not run. */
    void signal(const std::string& name, int number);
    /** Ends it and starts it anew when it has ended. */
    void restart(const std::string& name);

    /** Notices ends, and starts what waits for its own. */
    void look();

    bool runs(const std::string& name) const;
    bool anyRuns() const;
    bool anyRestarts() const;

    /** SIGTERM to all, the last started first. */
    void endAll();

    /** "node slave ended with status 1 at 12.5 s: what it said first; see slave.log" */
    const std::vector<std::string>& failures() const { return failures_; }

    /** Reads what the nodes wrote, and joins what several starts wrote in one file each. Samples
     *  of the runner's own stay. `results` is the folder that they are in. */
    void collect(std::map<std::string, NodeResult>& results) const;

private:
    struct State {
        const Node* node = nullptr;
        Program program;
        pid_t pid = 0; /**< 0: does not run */
        bool endExpected = false;
        bool restarts = false;
        bool stopped = false;
        std::vector<std::uint64_t> startsNs;
        std::uintmax_t logBegin = 0; /**< what earlier starts had written */
    };

    void exec(const State& state, unsigned start) const;
    void ended(State& state, int status);

    virtual_i210::Simulation& simulation_;
    std::string cards_;
    std::string buildFolder_;
    std::vector<State> states_;
    std::map<std::string, std::size_t> positions_;
    std::vector<std::string> failures_;
};

}  // namespace simulate
