#include "tools/tsyn/plot/PlotOptions.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/plot/PlotCommand.h"

namespace tsyn {
namespace {

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string outputProblem(const std::string& file) {
    return endsWith(file, ".html") || endsWith(file, ".png")
               ? ""
               : "name a file that ends in .html or .png, not '" + file + "'";
}

}  // namespace

bool PlotOptions::isPicture() const {
    return endsWith(output, ".png");
}

Command addPlotCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "plot", "Draw what tsyn record and tsyn run --samples wrote, as a page or a picture");
    const auto options = std::make_shared<PlotOptions>();
    parser->add_option("files", options->files, "files of tsyn record or of tsyn run --samples")
        ->required();
    parser
        ->add_option("-o,--output", options->output,
                     "file to write: .html is a page to look around in, .png a picture")
        ->required()
        ->check(CLI::Validator(outputProblem, ""));
    parser->add_flag("--force", options->replaces, "replace the file");
    parser
        ->add_option("--shift", options->shiftS,
                     "seconds from the first sample of a recording to the start of the tsyn run "
                     "whose --samples are drawn with it (0)")
        ->check(realNumber(-1e9, 1e9));
    parser
        ->add_option("--points", options->points,
                     "parts of the time of each curve, whose least and greatest value are kept; "
                     "100..100000 (3000)")
        ->check(wholeNumber(100, 100000));
    return {parser, [options] { return plotCommand(*options); }};
}

}  // namespace tsyn
