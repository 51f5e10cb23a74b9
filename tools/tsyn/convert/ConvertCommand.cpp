#include "tools/tsyn/convert/ConvertCommand.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

#include "include/gPtpExactTime.h"
#include "tools/tsyn/Failure.h"
#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/daemon/Look.h"
#include "tools/tsyn/daemon/RecordView.h"

namespace tsyn {
namespace {

constexpr long long kNsPerSecond = 1000000000;

struct ConvertOptions {
    std::vector<std::string> words; /**< interface, unless a file is named, and times */
    std::string recordFile;
    bool toSystem = false;
    bool countsTai = false;
    bool showsTai = false;
    int utcOffsetS = kUtcOffsetS;
};

class Conversion {
public:
    explicit Conversion(const ConvertOptions& options) : options_(options) {}

    int run();

private:
    std::string load(std::size_t& firstTime);
    std::string loadFile();
    std::string convert(const std::string& text, const std::string& where) const;
    long long offsetNs() const {
        return options_.countsTai ? options_.utcOffsetS * kNsPerSecond : 0;
    }

    const ConvertOptions& options_;
    gPtpTimeDataStruct record_{};
};

std::string Conversion::loadFile() {
    std::ifstream file(options_.recordFile, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open()) {
        return "--record " + options_.recordFile + ": cannot be read (" + std::strerror(errno) +
               ")";
    }
    if (bytes.size() != kSharedSegmentSize) {
        return "--record " + options_.recordFile + ": has " + std::to_string(bytes.size()) +
               " bytes; the copy of a segment in /dev/shm has " +
               std::to_string(kSharedSegmentSize);
    }
    std::memcpy(&record_, bytes.data() + kSharedRecordOffset, sizeof record_);
    record_ = withSoftOffset(record_);
    return {};
}

std::string Conversion::load(std::size_t& firstTime) {
    if (!options_.recordFile.empty()) {
        return loadFile();
    }
    firstTime = 1;
    if (options_.words.empty()) {
        return "interface is required, or --record; 'tsyn convert --help' lists the options";
    }
    const std::string& name = options_.words.front();
    RecordView view;
    const auto record = view.open(name) ? view.snapshot() : std::nullopt;
    if (!record) {
        return name + ": no record /dev/shm/" + name + "; a daemon on the interface publishes it";
    }
    record_ = withSoftOffset(*record);
    return {};
}

/** Prints a converted time. Returns what went wrong, empty on success. */
std::string Conversion::convert(const std::string& text, const std::string& where) const {
    const auto utcNs = parseTime(text, options_.utcOffsetS);
    if (!utcNs) {
        return where + "'" + text + "' is no time; " + kTimeForms;
    }
    const bool isIso = text.find('-') != std::string::npos;
    // Numbers count what their clock counts; only dates are turned to its scale.
    const long long shiftNs = options_.toSystem && isIso ? offsetNs() : 0;
    const long long result = options_.toSystem ? gPtpSystemAtTime(&record_, *utcNs + shiftNs)
                                               : gPtpTimeAtSystem(&record_, *utcNs);
    if (result == LLONG_MIN || result < offsetNs()) {
        return where + "the record holds no time yet, or none that reaches '" + text + "'";
    }
    const long long utcResult = options_.toSystem ? result : result - offsetNs();
    std::printf(
        "%lld %s\n", result,
        (options_.showsTai ? taiText(utcResult, options_.utcOffsetS) : utcText(utcResult)).c_str());
    return {};
}

int Conversion::run() {
    std::size_t firstTime = 0;
    std::string problem = load(firstTime);
    if (!problem.empty()) {
        return fail(problem, options_.recordFile.empty() && options_.words.empty() ? kWrongUse : 1);
    }
    for (std::size_t i = firstTime; i < options_.words.size() && problem.empty(); ++i) {
        problem = convert(options_.words[i], "");
    }
    std::string line;
    for (int number = 1;
         options_.words.size() == firstTime && problem.empty() && std::getline(std::cin, line);
         ++number) {
        problem = convert(line, "standard input, line " + std::to_string(number) + ": ");
        std::fflush(stdout);  // for whoever waits for each answer
    }
    return outputStatus(problem.empty() ? 0 : fail(problem, kWrongUse));
}

void addOptions(CLI::App& command, ConvertOptions& options) {
    command.add_option("words", options.words,
                       "interface, unless --record names a file, then the times; without times "
                       "each line of standard input is one");
    command
        .add_option("--record", options.recordFile,
                    "copy of a shared record /dev/shm/INTERFACE in place of that of an interface")
        ->type_name("FILE");
    command.add_flag("--to-system", options.toSystem,
                     "from grandmaster time to system time rather than the other way");
    command.add_flag("--grandmaster-tai", options.countsTai,
                     "the grandmaster counts TAI rather than UTC");
    command.add_flag("--tai", options.showsTai, "print dates in TAI rather than UTC");
    command.add_option("--utc-offset", options.utcOffsetS, "seconds of TAI over UTC")
        ->type_name("SECONDS")
        ->check(wholeNumber(0, 1000))
        ->capture_default_str();
}

}  // namespace

Command addConvertCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "convert",
        "Convert system time to grandmaster time or back by the shared record of a daemon, to the "
        "nanosecond; each line printed holds ns and a date");
    const auto options = std::make_shared<ConvertOptions>();
    addOptions(*parser, *options);
    return {parser, [options] { return Conversion(*options).run(); }};
}

}  // namespace tsyn
