#include "tools/tsyn/feed/FeedCommand.h"

#include <CLI/CLI.hpp>

#include "tools/tsyn/Failure.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/daemon/SegmentSource.h"
#include "tools/tsyn/daemon/SourceOptions.h"
#include "tools/tsyn/feed/Feeder.h"
#include "tools/tsyn/watch/Waiting.h"

namespace tsyn {
namespace {

/** Less than the shortest Sync interval, and little of a processor. */
constexpr double kFeedPeriodS = 0.02;

void addSinkOptions(CLI::App& parser, FeedOptions& options) {
    auto* const chrony =
        parser
            .add_option("--chrony", options.chronySocket,
                        "socket of chronyd's 'refclock SOCK'; chronyd makes it")
            ->check(CLI::Validator(
                [](const std::string& path) {
                    return path.empty() ? std::string("the path is empty") : std::string();
                },
                ""));
    auto* const ntp = parser
                          .add_option("--ntp-shm", options.ntpUnit,
                                      "unit of the NTP shared memory, of chronyd's 'refclock SHM' "
                                      "or ntpd's driver 28")
                          ->check(wholeNumber(0, 255))
                          ->excludes(chrony);
    chrony->excludes(ntp);
    parser.final_callback([chrony, ntp] {
        if (chrony->count() + ntp->count() == 0) {
            throw CLI::RequiredError("--chrony PATH or --ntp-shm UNIT");
        }
    });
}

FeedTimescale timescaleNamed(const std::string& word) {
    if (word == "auto") {
        return FeedTimescale::kByDistance;
    }
    return word == "tai" ? FeedTimescale::kTai : FeedTimescale::kUtc;
}

void addLimitOptions(CLI::App& parser, FeedOptions& options) {
    parser.add_option("--rate", options.ratePerS, "samples a second, at most one each Sync (1)")
        ->check(realNumber(0.001, 100.0));
    parser
        .add_option("--max-bound", options.limits.maxBoundNs,
                    "ns: no sample while a daemon of the standard profile tells an error bound "
                    "above (10000); one that does what deployed nodes do tells none")
        ->check(wholeNumber(1, 1000000000));
    parser
        .add_option_function<std::string>(
            "--timescale",
            [&options](const std::string& word) {
                options.limits.timescale = timescaleNamed(word);
            },
            "what the daemon's time is: utc, tai, or auto, which takes the one that lies "
            "within 5 s of this host's clock (auto)")
        ->check(oneOfWords({"auto", "utc", "tai"}));
    parser.add_flag("--wait", options.wait, "wait for a record that is not there at the start");
}

}  // namespace

int feedCommand(const FeedOptions& options) {
    const std::unique_ptr<SampleSink> sink = options.chronySocket.empty()
                                                 ? makeNtpSink(options.ntpUnit)
                                                 : makeChronySink(options.chronySocket);
    if (const std::string problem = sink->open(); !problem.empty()) {
        return fail(problem);
    }
    SegmentSource source(options.interfaceName);
    if (!options.wait && !source.look(0.0)) {
        return fail(source.problem());
    }
    Waiting waiting;
    Feeder feeder(options, source, *sink);
    while (!Waiting::isEndAsked()) {
        feeder.look();
        waiting.until(monotonicNowS() + kFeedPeriodS, false);
    }
    return 0;
}

Command addFeedCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "feed",
        "Give the time of a slave of another process to chronyd or ntpd, which sets this host's "
        "clock by it; only while it is synchronised, and through restarts of either");
    const auto options = std::make_shared<FeedOptions>();
    addInterfaceOption(*parser, options->interfaceName)->required();
    addSinkOptions(*parser, *options);
    addLimitOptions(*parser, *options);
    addLookOptions(*parser, options->limits.staleAfterS, options->limits.utcOffsetS);
    return {parser, [options] { return feedCommand(*options); }};
}

}  // namespace tsyn
