#include "tools/simulate/Run.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tools/simulate/Commands.h"
#include "tools/simulate/Director.h"
#include "tools/simulate/Network.h"
#include "tools/simulate/Nodes.h"
#include "tools/simulate/Paths.h"
#include "tools/simulate/Picture.h"
#include "tools/virtual_i210/Simulation.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace simulate {
namespace {

/** An empty folder, but for folders in it: those are not ours. */
void emptyFolder(const std::string& path) {
    std::filesystem::create_directories(path);
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        if (!entry.is_directory()) {
            std::filesystem::remove(entry.path());
        }
    }
}

std::map<std::string, std::uint64_t> cardCounters(const std::string& card) {
    const virtual_i210::Counters counters = virtual_i210::counters(card);
    return {{"card.ptp_frames_sent", counters.ptpFramesSent},
            {"card.event_frames_sent", counters.eventFramesSent},
            {"card.tx_timestamps", counters.txTimestamps},
            {"card.rx_timestamps", counters.rxTimestamps},
            {"card.rx_fallbacks", counters.rxFallbacks},
            {"card.frames_swallowed", counters.framesSwallowed},
            {"card.clock_readings", counters.clockReadings},
            {"card.clock_adjustments", counters.clockAdjustments}};
}

/** The simulation ends with this, so that the capture is whole. */
RunRecord directed(const Scenario& scenario, const RunSetup& setup,
                   const std::function<void(std::uint64_t)>& progress) {
    const std::string cards = cardText(scenario, setup.seed);
    virtual_i210::Simulation simulation(cards);
    Nodes nodes(scenario, simulation, cards, setup.buildFolder);
    Director director(scenario, simulation, nodes, progress);
    director.run();
    std::map<std::string, NodeResult> results;
    director.giveSamples(results);
    nodes.collect(results);
    RunRecord record;
    record.scenario = &scenario;
    record.seed = setup.seed;
    record.failures = director.failures();
    for (const Node& node : scenario.nodes) {
        results[node.name].card = cardCounters(node.cardName);
        record.results.push_back(std::move(results[node.name]));
    }
    return record;
}

void writeReport(const RunRecord& record) {
    const std::string file = std::string(kResultsFolder) + "/report.json";
    std::ofstream stream(file);
    stream << reportOf(record).dump(2) << '\n';
    if (!stream.flush()) {
        throw std::runtime_error("report.json cannot be written: " +
                                 std::string(std::strerror(errno)));
    }
}

}  // namespace

RunSummary runOnce(const Scenario& scenario, const RunSetup& setup,
                   const std::function<void(std::uint64_t)>& progress) {
    emptyFolder(setup.results);
    makePrivateFolder(setup.results);
    makeNetwork(scenario);
    // For the card's own functions in this process.
    setenv("VIRTUAL_I210", cardText(scenario, setup.seed).c_str(), 1);
    RunRecord record = directed(scenario, setup, progress);
    if (record.failures.empty()) {
        record.judgements = judge(scenario, record.results);
    }
    writeReport(record);
    RunSummary summary = summaryOf(record);
    if (setup.picture) {
        const std::string script =
            pictureScript(record, std::string(kResultsFolder) + "/picture.png");
        const std::string problem = script.empty() ? "" : draw(script);
        if (!problem.empty()) {
            summary.remarks.push_back(problem);
        }
    }
    return summary;
}

}  // namespace simulate
