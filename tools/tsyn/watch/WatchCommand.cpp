#include "tools/tsyn/watch/WatchCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/daemon/SourceOptions.h"
#include "tools/tsyn/watch/Screen.h"
#include "tools/tsyn/watch/SyncMoments.h"
#include "tools/tsyn/watch/SyncStatistics.h"
#include "tools/tsyn/watch/Waiting.h"
#include "tools/tsyn/watch/WatchLines.h"
#include "tools/tsyn/watch/WatchPage.h"
#include "tools/tsyn/watch/Watcher.h"

namespace tsyn {
namespace {

constexpr double kPeriodS = 1.0;
/** What a line may be late by, so that no look is needed for it alone. */
constexpr double kLateLineS = 0.2;

double endOf(const WatchOptions& options) {
    return options.durationS > 0.0 ? monotonicNowS() + options.durationS
                                   : std::numeric_limits<double>::infinity();
}

/** False once the reader has gone. */
bool printLine(const std::string& line) {
    return std::printf("%s\n", line.c_str()) >= 0 && std::fflush(stdout) == 0;
}

int outputClosed() {
    std::fprintf(stderr,
                 errno == EPIPE
                     ? "tsyn: standard output was closed; nobody reads what watch shows\n"
                     : "tsyn: standard output cannot be written (%s)\n",
                 std::strerror(errno));
    return 1;
}

/** The next moment of a period, none of those that were missed. */
double following(double momentS, double periodS) {
    const double missed = std::floor((monotonicNowS() - momentS) / periodS);
    return momentS + periodS * (1.0 + std::max(0.0, missed));
}

int watchAsLines(const WatchOptions& options, Waiting& waiting) {
    Watcher watcher(options);
    const double endS = endOf(options);
    for (double nextS = monotonicNowS(); !Waiting::isEndAsked() && nextS <= endS;
         nextS = following(nextS, kPeriodS)) {
        waiting.until(nextS, false);
        if (Waiting::isEndAsked()) {
            break;
        }
        watcher.look();
        if (!printLine(options.json ? watchJson(watcher, options.utcOffsetS)
                                    : watchLine(watcher))) {
            return outputClosed();
        }
    }
    return 0;
}

int watchAsSummary(const WatchOptions& options, Waiting& waiting) {
    const std::unique_ptr<RecordSource> source = makeSource(options.source);
    SyncStatistics statistics;
    SyncMoments moments(source->sharesClock());
    const double endS = endOf(options);
    double nextS = monotonicNowS();
    double nextLineS = nextS + kPeriodS;
    while (!Waiting::isEndAsked() && nextS <= endS) {
        waiting.until(nextS, false);
        const std::optional<Look> look = source->look(0.0);
        if (look) {
            statistics.add(*look);
            moments.add(*look);
        }
        const double nowS = monotonicNowS();
        if (nowS >= nextLineS) {
            nextLineS = following(nextLineS, kPeriodS);
            const std::optional<std::string> line = statistics.take();
            if (!printLine(line ? *line : look ? "no Sync" : "waiting: " + source->problem())) {
                return outputClosed();
            }
        }
        nextS = moments.nextS(nowS);
        if (nextS > nextLineS + kLateLineS) {
            nextS = nextLineS;
        }
    }
    return 0;
}

/** Whether the user asked for the end. */
bool takeKeys(Screen& screen, PageShape& shape) {
    for (int key = screen.key(); key != Screen::kNone; key = screen.key()) {
        if (key == 'q' || key == 'Q') {
            return true;
        }
        if (key == 'p' || key == 'P' || key == ' ') {
            shape.isPaused = !shape.isPaused;
        }
    }
    return false;
}

int watchOnScreen(const WatchOptions& options, Waiting& waiting, Screen& screen) {
    Watcher watcher(options);
    PageShape shape;
    shape.utf8 = screen.isUtf8() && !options.ascii;
    shape.utcOffsetS = options.utcOffsetS;
    const double endS = endOf(options);
    double nextS = monotonicNowS();
    while (!Waiting::isEndAsked() && !waiting.hasHungUp() && monotonicNowS() <= endS) {
        if (monotonicNowS() >= nextS) {
            nextS = following(nextS, kPeriodS);
            if (!shape.isPaused) {
                watcher.look();
            }
        }
        shape.rows = screen.rows();
        shape.columns = screen.columns();
        screen.show(pageLines(watcher, shape));
        waiting.until(nextS, true);
        if (takeKeys(screen, shape)) {
            break;
        }
    }
    return 0;
}

}  // namespace

int watchCommand(const WatchOptions& options) {
    Waiting waiting;
    if (options.summary) {
        return watchAsSummary(options, waiting);
    }
    if (!options.json && isatty(STDOUT_FILENO) != 0) {
        std::string problem;
        if (const std::unique_ptr<Screen> screen = Screen::open(problem)) {
            return watchOnScreen(options, waiting, *screen);
        }
        std::fprintf(stderr, "tsyn: %s; a line a second follows\n", problem.c_str());
    }
    return watchAsLines(options, waiting);
}

Command addWatchCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "watch",
        "Watch the daemon of another process, through its ends and restarts: full screen on a "
        "terminal, otherwise a line a second");
    const auto options = std::make_shared<WatchOptions>();
    addSourceOptions(*parser, options->source);
    auto* const json =
        parser->add_flag("--json", options->json, "one JSON object a second instead");
    parser
        ->add_flag("--summary", options->summary,
                   "one line a second of the Syncs in it, as ptp4l prints them: rms and max of "
                   "how far they moved the time in ns, rate in ppb, delay in ns")
        ->excludes(json);
    parser->add_flag("--ascii", options->ascii, "no UTF-8, whatever the locale says");
    parser->add_option("--duration", options->durationS, "end after this many seconds")
        ->check(realNumber(0.1, 1e9));
    addLookOptions(*parser, options->staleAfterS, options->utcOffsetS);
    return {parser, [options] { return watchCommand(*options); }};
}

}  // namespace tsyn
