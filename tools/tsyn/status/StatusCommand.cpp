#include "tools/tsyn/status/StatusCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "tools/tsyn/Failure.h"
#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/daemon/DaemonJson.h"
#include "tools/tsyn/daemon/DaemonText.h"
#include "tools/tsyn/daemon/SourceOptions.h"

namespace tsyn {
namespace {

constexpr int kNotSynchronised = 3;
constexpr int kHoldover = 4;
constexpr auto kBetweenLooks = std::chrono::milliseconds(20);

int statusOf(Verdict verdict) {
    switch (verdict) {
    case Verdict::kGood:
        return 0;
    case Verdict::kHolding:
        return kHoldover;
    default:
        return kNotSynchronised;
    }
}

/** A state that a daemon tells is believed at once; one that is derived needs a Sync to be seen. */
bool isCertain(const DaemonState& daemon) {
    return daemon.verdict() == Verdict::kGood && (daemon.latest().quality || daemon.isMoving());
}

/** Looks until the state is certain, or for as long as a Sync may be away. */
bool lookAround(RecordSource& source, const StatusOptions& options, DaemonState& daemon) {
    const std::optional<Look> first = source.look(options.timeoutS);
    if (!first) {
        return false;
    }
    daemon = DaemonState(source.sharesClock(), options.staleAfterS);
    daemon.update(*first);
    const double endS = first->monotonicS + options.staleAfterS;
    for (double nowS = first->monotonicS; !isCertain(daemon) && nowS < endS;
         nowS = monotonicNowS()) {
        if (!source.segmentFile().empty()) {
            std::this_thread::sleep_for(kBetweenLooks);
        }
        if (const std::optional<Look> next = source.look(endS - nowS)) {
            daemon.update(*next);
        }
    }
    return true;
}

void print(const std::string& name, const DaemonState& daemon, const Owner& owner, int utcOffsetS) {
    std::printf("%s\n", headline(name, daemon).c_str());
    std::vector<TextRow> rows = daemonRows(daemon, owner, utcOffsetS);
    rows.push_back({"counters", countersText(daemon.latest())});
    for (const TextRow& row : rows) {
        std::printf("  %-12s%s\n", row.label.c_str(), row.text.c_str());
    }
}

}  // namespace

int statusCommand(const StatusOptions& options) {
    const std::unique_ptr<RecordSource> source = makeSource(options.source);
    DaemonState daemon(true, options.staleAfterS);
    if (!lookAround(*source, options, daemon)) {
        return fail(source->problem());
    }
    OwnerFinder finder;
    const Owner owner = finder.find(daemon.latest(), source->segmentFile());
    if (options.json) {
        std::printf("%s\n",
                    daemonJson(source->name(), daemon, owner, options.utcOffsetS).dump().c_str());
    } else {
        print(source->name(), daemon, owner, options.utcOffsetS);
    }
    constexpr int kUnwritten = 1;
    if (outputStatus(0, kUnwritten) != 0) {
        return kUnwritten;
    }
    return hasEnded(owner, daemon) ? fail(source->name() + ": " + endedText(owner))
                                   : statusOf(daemon.verdict());
}

Command addStatusCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "status",
        "Look once at the daemon of another process, which does not notice; status 0: "
        "synchronised, or a master that sends; 3: not synchronised; 4: holdover, the master is "
        "silent and the time within its bound; 1: no record, unreadable, or its daemon has ended; "
        "2: wrong use");
    const auto options = std::make_shared<StatusOptions>();
    addSourceOptions(*parser, options->source);
    parser->add_flag("--json", options->json, "one JSON object");
    addLookOptions(*parser, options->staleAfterS, options->utcOffsetS);
    parser
        ->add_option("--timeout", options->timeoutS,
                     "seconds to wait for the first answer of a spy (3)")
        ->check(realNumber(0.1, 3600.0));
    return {parser, [options] { return statusCommand(*options); }};
}

}  // namespace tsyn
