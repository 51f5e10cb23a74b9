#include "tools/tsyn/export/ExportCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "tools/tsyn/Failure.h"
#include "tools/tsyn/daemon/SegmentSource.h"
#include "tools/tsyn/daemon/SourceOptions.h"
#include "tools/tsyn/export/HttpServer.h"
#include "tools/tsyn/export/MetricsText.h"

namespace tsyn {
namespace {

/** Syncs are seen between two scrapes: a daemon that moves runs, be its process hidden. */
constexpr double kLookPeriodS = 0.25;

/** A daemon as it was at the latest look. */
class Exported {
public:
    explicit Exported(const ExportOptions& options)
        : source_(options.interfaceName),
          utcOffsetS_(options.utcOffsetS),
          daemon_(true, options.staleAfterS) {}

    void look() {
        const std::optional<Look> look = source_.look(0.0);
        isFound_ = look.has_value();
        if (look) {
            daemon_.update(*look);
        }
    }

    std::string metrics() {
        look();
        if (!isFound_) {
            return metricsTextWithout(source_.name());
        }
        const Owner& owner = finder_.find(daemon_.latest(), source_.segmentFile());
        return metricsText(source_.name(), daemon_, owner, utcOffsetS_);
    }

private:
    SegmentSource source_;
    int utcOffsetS_;
    DaemonState daemon_;
    OwnerFinder finder_;
    bool isFound_ = false;
};

}  // namespace

int exportCommand(const ExportOptions& options) {
    Exported exported(options);
    HttpServer server([&exported] { return exported.metrics(); });
    if (const std::string problem = server.listen(options.listen); !problem.empty()) {
        return fail(problem);
    }
    Waiting waiting;
    std::fprintf(stderr, "tsyn: metrics at http://%s/metrics\n", server.name().c_str());
    double nextS = monotonicNowS();
    while (!Waiting::isEndAsked()) {
        if (monotonicNowS() >= nextS) {
            exported.look();
            nextS = monotonicNowS() + kLookPeriodS;
        }
        server.serve(waiting, nextS);
    }
    return 0;
}

Command addExportCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "export",
        "Serve the state of the daemon of another process to Prometheus, by HTTP at /metrics, "
        "through its ends and restarts");
    const auto options = std::make_shared<ExportOptions>();
    addInterfaceOption(*parser, options->interfaceName)->required();
    parser
        ->add_option("--listen", options->listen,
                     "ADDR:PORT, such as 127.0.0.1:9319 or [::]:9319; whoever reaches it reads "
                     "the metrics; port 0 is any free one")
        ->required();
    addLookOptions(*parser, options->staleAfterS, options->utcOffsetS);
    return {parser, [options] { return exportCommand(*options); }};
}

}  // namespace tsyn
