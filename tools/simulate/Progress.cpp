#include "tools/simulate/Progress.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/common/Formatted.h"
#include "tools/simulate/Options.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

constexpr std::size_t kBarWidth = 30;
constexpr auto kRedrawEvery = std::chrono::milliseconds(200);
constexpr auto kTellEvery = std::chrono::seconds(10);

using tools::formatted;

std::string speedText(double simulatedS, double wallS) {
    return wallS > 0.0 ? formatted("%.*f x", simulatedS / wallS < 10 ? 1 : 0, simulatedS / wallS)
                       : "-";
}

std::string speedOf(const Outcome& outcome) {
    if (outcome.summary.verdict != "held" && outcome.summary.verdict != "broken") {
        return "-";
    }
    return speedText(secondsOf(outcome.job.scenario->durationNs), outcome.wallS);
}

std::string cell(const std::optional<double>& value) {
    return value ? formatted("%.0f", *value) : "-";
}

}  // namespace

std::string bar(double part, std::size_t width) {
    const double filled = std::clamp(part, 0.0, 1.0) * static_cast<double>(width);
    const auto count = static_cast<std::size_t>(filled);
    return "[" + std::string(count, '#') + std::string(width - count, '-') + "]";
}

std::string called(const Job& job) {
    return job.scenario->name + " seed " + std::to_string(job.seed);
}

void Progress::started(const Job& job) {
    active_[called(job)] = {job, 0, Clock::now(), Clock::now()};
}

void Progress::at(const Job& job, std::uint64_t simulatedNs) {
    active_[called(job)].simulatedNs = simulatedNs;
}

std::string Progress::line(const Active& active) const {
    const double simulatedS = secondsOf(active.simulatedNs);
    const double durationS = secondsOf(active.job.scenario->durationNs);
    const double wallS = std::chrono::duration<double>(Clock::now() - active.begin).count();
    return formatted("%-24s %s %9.1f / %.1f s  %s", called(active.job).c_str(),
                     bar(simulatedS / durationS, kBarWidth).c_str(), simulatedS, durationS,
                     speedText(simulatedS, wallS).c_str());
}

void Progress::wipe() {
    for (; drawn_ > 0; --drawn_) {
        std::fputs("\x1b[1A\x1b[2K", stdout);
    }
}

void Progress::ended(const Outcome& outcome) {
    ++done_;
    active_.erase(called(outcome.job));
    if (terminal_) {
        wipe();
    }
    const RunSummary& summary = outcome.summary;
    std::printf("%-24s %-11s %s, %.2f s (%s)\n", called(outcome.job).c_str(),
                summary.verdict.c_str(), secondsText(outcome.job.scenario->durationNs).c_str(),
                outcome.wallS, speedOf(outcome).c_str());
    std::fflush(stdout);
}

void Progress::show() {
    const auto now = Clock::now();
    if (terminal_) {
        if (now - shown_ < kRedrawEvery) {
            return;
        }
        shown_ = now;
        wipe();
        for (const auto& [name, active] : active_) {
            std::printf("%s\n", line(active).c_str());
        }
        std::printf("%zu of %zu runs done\n", done_, runs_);
        drawn_ = active_.size() + 1;
    }
    for (auto& [name, active] : active_) {
        if (!terminal_ && now - active.told >= kTellEvery) {
            active.told = now;
            std::printf("%s\n", line(active).c_str());
        }
    }
    std::fflush(stdout);
}

std::string tableOf(const std::vector<Outcome>& outcomes) {
    std::size_t width = sizeof "scenario";
    std::size_t nodeWidth = sizeof "node";
    for (const Outcome& outcome : outcomes) {
        width = std::max(width, outcome.job.scenario->name.size());
        nodeWidth = std::max(nodeWidth, outcome.summary.node.size());
    }
    const int column = static_cast<int>(width);
    const int nodeColumn = static_cast<int>(nodeWidth);
    std::string text =
        formatted("%-*s %10s  %-11s %9s  %-*s %12s %12s %12s %8s\n", column, "scenario", "seed",
                  "verdict", "bounds", nodeColumn, "node", "p50 ns", "p99 ns", "max ns", "speed");
    for (const Outcome& outcome : outcomes) {
        const RunSummary& summary = outcome.summary;
        text += formatted(
            "%-*s %10llu  %-11s %9s  %-*s %12s %12s %12s %8s\n", column,
            outcome.job.scenario->name.c_str(), static_cast<unsigned long long>(outcome.job.seed),
            summary.verdict.c_str(), formatted("%zu/%zu", summary.held, summary.bounds).c_str(),
            nodeColumn, summary.node.empty() ? "-" : summary.node.c_str(),
            cell(summary.p50).c_str(), cell(summary.p99).c_str(), cell(summary.max).c_str(),
            speedOf(outcome).c_str());
    }
    return text;
}

std::string complaintsOf(const Outcome& outcome, const std::string& program,
                         const std::string& options) {
    std::string text;
    for (const std::string& complaint : outcome.summary.complaints) {
        text += complaint + " (seed " + std::to_string(outcome.job.seed) + ")\n";
    }
    if (!text.empty()) {
        text += "  again: " + shellWord(program) + " " + shellWord(outcome.job.scenario->file) +
                " --seeds " + std::to_string(outcome.job.seed) + options +
                "; results: " + outcome.job.results + "\n";
    }
    for (const std::string& remark : outcome.summary.remarks) {
        text += called(outcome.job) + ": " + remark + "\n";
    }
    return text;
}

}  // namespace simulate
