#include "tools/tsyn/plot/PlotOptions.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/tsyn/plot/PlotCommand.h"

namespace tsyn {

Command addPlotCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "plot", "Draw what tsyn record and tsyn run --samples wrote, as a page or a picture");
    const auto options = std::make_shared<PlotOptions>();
    parser->add_option("files", options->files, "files of tsyn record or of tsyn run --samples")
        ->required();
    parser
        ->add_option("-o,--output", options->output,
                     "file to write: .html is a page to look around in, .png a picture")
        ->required();
    parser->add_flag("--force", options->replaces, "replace the file");
    parser
        ->add_option("--shift", options->shiftS,
                     "seconds from the first sample of a recording to the start of the tsyn run "
                     "whose --samples are drawn with it (0)")
        ->check(CLI::Range(-1e9, 1e9));
    parser
        ->add_option("--points", options->points,
                     "parts of the time of each curve, whose least and greatest value are kept; "
                     "100..100000 (3000)")
        ->check(CLI::Range(100, 100000));
    return {parser, [options] { return plotCommand(*options); }};
}

}  // namespace tsyn
