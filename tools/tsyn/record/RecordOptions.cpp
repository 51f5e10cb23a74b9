#include "tools/tsyn/record/RecordOptions.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>

#include "tools/tsyn/record/RecordCommand.h"

namespace tsyn {
namespace {

constexpr double kLeastHz = 0.001;
constexpr double kMostHz = 1000.0;
constexpr double kLeastBytes = 4096.0;
constexpr double kMostBytes = 1e15;

bool isBetween(double value, double least, double most) {
    return value >= least && value <= most;
}

/** "10/s" or "10"; 0 when it is no number. */
double hertzOf(const std::string& text) {
    const std::size_t unit = text.find("/s");
    const bool hasUnit = unit != std::string::npos && unit + 2 == text.size();
    double hertz = 0.0;
    return CLI::detail::lexical_cast(hasUnit ? text.substr(0, unit) : text, hertz) ? hertz : 0.0;
}

/** "64M"; 0 when it is no size. */
double bytesOf(const std::string& text) {
    const std::string units = "kMG";
    const std::size_t unit = text.empty() ? std::string::npos : units.find(text.back());
    double number = 0.0;
    const bool isNumber = CLI::detail::lexical_cast(
        unit == std::string::npos ? text : text.substr(0, text.size() - 1), number);
    const double factor = unit == std::string::npos ? 1.0 : std::pow(1000.0, 1.0 + double(unit));
    return isNumber ? number * factor : 0.0;
}

std::string rateProblem(const std::string& text) {
    const bool isGood = text == "sync" || isBetween(hertzOf(text), kLeastHz, kMostHz);
    return isGood ? "" : "'" + text + "' is neither sync nor 0.001/s to 1000/s";
}

std::string sizeProblem(const std::string& text) {
    const bool isGood = isBetween(bytesOf(text), kLeastBytes, kMostBytes);
    return isGood ? "" : "'" + text + "' is no size from 4096 bytes on, such as 500k, 64M or 1G";
}

std::string durationProblem(const std::string& text) {
    double seconds = 0.0;
    const bool isGood = CLI::detail::lexical_cast(text, seconds) && isBetween(seconds, 0.1, 1e9);
    return isGood ? "" : "'" + text + "' is no number of seconds from 0.1 to 1e9";
}

}  // namespace

std::optional<double> RecordOptions::rateHz() const {
    return rate == "sync" ? std::nullopt : std::optional<double>(hertzOf(rate));
}

std::uint64_t RecordOptions::maxBytes() const {
    return static_cast<std::uint64_t>(bytesOf(maxSize));
}

void addRecordOptions(CLI::App& command, RecordOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface such as eth1")
        ->required();
    command.add_option("-o,--output", options.file, "file to write; -: standard output")
        ->required();
    command
        .add_option("--rate", options.rate,
                    "sync: one sample with each Sync, and one a second without; or a number a "
                    "second such as 10/s (sync)")
        ->check(CLI::Validator(rateProblem, ""));
    command.add_option("--duration", options.durationS, "end after this many seconds")
        ->check(CLI::Validator(durationProblem, ""));
    command
        .add_option("--max-size", options.maxSize,
                    "size of one file; then FILE becomes FILE.1 and a new one begins (64M)")
        ->check(CLI::Validator(sizeProblem, ""));
    command.add_option("--keep", options.kept, "older files kept beside FILE, 0..999 (3)")
        ->check(CLI::Range(0, 999));
    command.add_flag("--force", options.replaces, "replace FILE and its older ones");
    command.add_flag("--wait", options.waits, "wait for a daemon that has not been started yet");
}

Command addRecordCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "record", "Write samples of a running daemon's time record to a file, for tsyn plot");
    const auto options = std::make_shared<RecordOptions>();
    addRecordOptions(*parser, *options);
    return {parser, [options] { return recordCommand(*options); }};
}

}  // namespace tsyn
