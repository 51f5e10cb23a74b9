#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tools/simulate/Report.h"
#include "tools/simulate/Scenario.h"

namespace simulate {

/** One run of one scenario. */
struct Job {
    const Scenario* scenario = nullptr;
    std::uint64_t seed = 0;
    std::string results; /**< folder */
};

struct Outcome {
    Job job;
    RunSummary summary;
    double wallS = 0.0; /**< real seconds */
};

/** "[####----]" */
std::string bar(double part, std::size_t width);

/** "measured seed 3" */
std::string called(const Job& job);

/** Shows the runs while they are under way: a line for each with a bar on a terminal, which is
 *  drawn over again; elsewhere a line when one ends, and now and then. */
class Progress {
public:
    Progress(std::size_t runs, bool terminal) : runs_(runs), terminal_(terminal) {}

    void started(const Job& job);
    void at(const Job& job, std::uint64_t simulatedNs);
    void ended(const Outcome& outcome);
    /** Draws what changed, a few times a second at most. */
    void show();

private:
    using Clock = std::chrono::steady_clock;

    struct Active {
        Job job;
        std::uint64_t simulatedNs = 0;
        Clock::time_point begin;
        Clock::time_point told;
    };

    std::string line(const Active& active) const;
    void wipe();

    std::size_t runs_;
    bool terminal_;
    std::size_t done_ = 0;
    std::size_t drawn_ = 0;
    std::map<std::string, Active> active_;
    Clock::time_point shown_;
};

/** The closing table; one line a run. */
std::string tableOf(const std::vector<Outcome>& outcomes);

/** What broke in a run and the command that repeats it; empty where nothing did. The options are
 *  those besides the seed, as words of a shell. */
std::string complaintsOf(const Outcome& outcome, const std::string& program,
                         const std::string& options);

}  // namespace simulate
