#include "tools/tsyn/convert/ConvertCommand.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "include/gPtpExactTime.h"
#include "tools/tsyn/Failure.h"
#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/daemon/Owner.h"
#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/daemon/SegmentSource.h"

namespace tsyn {
namespace {

constexpr long long kNsPerSecond = 1000000000;
/** As readers of the record, which say then that it is stale. */
constexpr long long kOldNs = 60 * kNsPerSecond;
constexpr double kLongestSilenceS = 1.5;
constexpr auto kBetweenTwoLooks = std::chrono::milliseconds(20);
/** A count of seconds, ms or us that is taken for ns lies further off, a use of the record nearer.
 */
constexpr long long kFarNs = 366LL * 86400 * kNsPerSecond;

struct ConvertOptions {
    std::vector<std::string> words; /**< interface, unless a file is named, and times */
    std::string recordFile;
    bool takesStale = false;
    bool toSystem = false;
    bool countsTai = false;
    bool showsTai = false;
    int utcOffsetS = kUtcOffsetS;
};

/** A daemon in another container hides its process, but not that it writes. */
bool isWritten(SegmentSource& source, const Look& first) {
    DaemonState daemon(true, kLongestSilenceS);
    daemon.update(first);
    while (!daemon.isMoving() && monotonicNowS() < first.monotonicS + kLongestSilenceS) {
        std::this_thread::sleep_for(kBetweenTwoLooks);
        if (const std::optional<Look> next = source.look(0.0)) {
            daemon.update(*next);
        }
    }
    return daemon.isMoving();
}

/** Why what the record says of the present may be wrong by any amount. */
std::string staleness(SegmentSource& source, const Look& look) {
    constexpr const char* kInsist = "; or convert by its last record with --stale";
    const std::string record = source.name() + ": " + source.segmentFile();
    OwnerFinder finder;
    if (finder.find(look, source.segmentFile()).life == Owner::Life::kEnded &&
        !isWritten(source, look)) {
        return record + ": the daemon that wrote it has ended; start it again" + kInsist;
    }
    const std::optional<long long> syncNs = lastSyncNs(look);
    if (!syncNs) {
        return {};
    }
    DaemonState daemon(true, kLongestSilenceS);
    daemon.update(look);
    if (look.quality && !daemon.boundNs()) {
        return record + ": its bound is void, since the state is '" + daemon.state() +
               "'; see that the master sends" + kInsist;
    }
    const long long silentNs = look.systemNs - *syncNs;
    if (silentNs > kOldNs) {
        return record + ": no Sync for " + std::to_string(silentNs / kNsPerSecond) +
               " s; see that the master sends" + kInsist;
    }
    return {};
}

class Conversion {
public:
    explicit Conversion(const ConvertOptions& options) : options_(options) {}

    int run();

private:
    std::string load(std::size_t& firstTime);
    std::string loadFile();
    int convert(const std::string& text, const std::string& where) const;
    std::string unitProblem(const std::string& text, long long ns) const;
    std::string voidProblem(const std::optional<long long>& boundNs) const;
    void print(long long result, const std::optional<long long>& boundNs) const;
    long long offsetNs() const {
        return options_.countsTai ? options_.utcOffsetS * kNsPerSecond : 0;
    }

    const ConvertOptions& options_;
    std::string name_; /**< of the record */
    gPtpTimeDataStruct record_{};
    std::optional<gPtpTimeQuality> quality_;
};

std::string Conversion::loadFile() {
    name_ = "--record " + options_.recordFile;
    std::ifstream file(options_.recordFile, std::ios::binary);
    std::vector<char> bytes(kSharedSegmentSize + 1);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.is_open() || file.bad()) {
        return name_ + ": cannot be read (" + std::strerror(errno) + ")";
    }
    const std::streamsize right = kSharedSegmentSize;
    if (file.gcount() != right) {
        return name_ + ": has " + (file.gcount() > right ? "more than " : "") +
               std::to_string(std::min(file.gcount(), right)) +
               " bytes; the copy of a segment in /dev/shm has " + std::to_string(right);
    }
    std::memcpy(&record_, bytes.data() + kSharedRecordOffset, sizeof record_);
    quality_ = qualityOf(record_);
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
    SegmentSource source(options_.words.front());
    const std::optional<Look> look = source.look(0.0);
    if (!look) {
        return source.problem();
    }
    name_ = source.name() + ": " + source.segmentFile();
    record_ = look->record;
    quality_ = look->quality;
    return options_.takesStale ? "" : staleness(source, *look);
}

/** Whether a number without a unit may have been meant in another one than ns, empty when not. */
std::string Conversion::unitProblem(const std::string& text, long long ns) const {
    const long long systemNs = anchorNs(record_);
    const long long anchor = options_.toSystem ? gPtpTimeAtSystem(&record_, systemNs) : systemNs;
    long long apartNs = 0;
    if (!isBareNumber(text) ||
        (!__builtin_sub_overflow(ns, anchor, &apartNs) && std::llabs(apartNs) <= kFarNs)) {
        return {};
    }
    return "'" + text + "' would be ns, " + utcText(ns) + ", over a year from the record's " +
           utcText(anchor) + "; write seconds as " + text + "s or " + text + ".0, or " + text +
           "ns if it is";
}

/** Why the bound at a time says nothing, empty when it does or when the record tells none. */
std::string Conversion::voidProblem(const std::optional<long long>& boundNs) const {
    if (!quality_ || boundNs) {
        return {};
    }
    const bool isLate =
        quality_->state == TSYN_STATE_SYNCHRONISED || quality_->state == TSYN_STATE_HOLDOVER;
    return isLate
               ? "void after " + utcText(quality_->voidAfterNs)
               : std::string("void, since the state is '") + timeStateName(quality_->state) + "'";
}

void Conversion::print(long long result, const std::optional<long long>& boundNs) const {
    const long long utcNs = options_.toSystem ? result : result - offsetNs();
    const std::string date =
        options_.showsTai ? taiText(utcNs, options_.utcOffsetS) : utcText(utcNs);
    const std::string bound = boundNs ? "  +/- " + std::to_string(*boundNs) + " ns" : "  void";
    std::printf("%lld %s%s\n", result, date.c_str(), quality_ ? bound.c_str() : "");
}

/** Prints a converted time. Returns the status, 0 on success. */
int Conversion::convert(const std::string& text, const std::string& where) const {
    const auto utcNs = parseTime(text, options_.utcOffsetS);
    if (!utcNs) {
        return fail(where + "'" + text + "' is no time; " + kTimeForms, kWrongUse);
    }
    const bool isIso = text.find('-') != std::string::npos;
    // Numbers count what their clock counts; only dates are turned to its scale.
    const long long shiftNs = options_.toSystem && isIso ? offsetNs() : 0;
    const long long result = options_.toSystem ? gPtpSystemAtTime(&record_, *utcNs + shiftNs)
                                               : gPtpTimeAtSystem(&record_, *utcNs);
    if (result == LLONG_MIN) {
        return fail(where + name_ + ": holds no time yet");
    }
    const std::string problem = unitProblem(text, *utcNs);
    if (!problem.empty()) {
        return fail(where + problem, kWrongUse);
    }
    if (result < offsetNs()) {
        return fail(where + name_ + ": holds no time that reaches '" + text + "'");
    }
    const std::optional<long long> boundNs =
        quality_ ? boundAt(*quality_, record_, options_.toSystem ? result : *utcNs) : std::nullopt;
    const std::string trouble = options_.takesStale ? "" : voidProblem(boundNs);
    if (!trouble.empty()) {
        return fail(where + name_ + ": its bound at '" + text + "' is " + trouble +
                    "; convert by a record of then, or by this one with --stale");
    }
    print(result, boundNs);
    return 0;
}

int Conversion::run() {
    std::size_t firstTime = 0;
    const std::string problem = load(firstTime);
    if (!problem.empty()) {
        return fail(problem, options_.recordFile.empty() && options_.words.empty() ? kWrongUse : 1);
    }
    int status = 0;
    for (std::size_t i = firstTime; i < options_.words.size() && status == 0; ++i) {
        status = convert(options_.words[i], "");
    }
    std::string line;
    for (int number = 1;
         options_.words.size() == firstTime && status == 0 && std::getline(std::cin, line);
         ++number) {
        status = convert(line, "standard input, line " + std::to_string(number) + ": ");
        std::fflush(stdout);  // for whoever waits for each answer
    }
    return outputStatus(status);
}

void addOptions(CLI::App& command, ConvertOptions& options) {
    command.add_option("words", options.words,
                       "interface, unless --record names a file, then the times; without times "
                       "each line of standard input is one");
    command
        .add_option("--record", options.recordFile,
                    "copy of a shared record /dev/shm/INTERFACE in place of that of an interface")
        ->type_name("FILE");
    command.add_flag(
        "--stale", options.takesStale,
        "also by a record whose daemon has ended, and times at which its bound is void");
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
        "nanosecond; each line printed holds ns, a date and, where the daemon tells it, the error "
        "bound of then");
    const auto options = std::make_shared<ConvertOptions>();
    addOptions(*parser, *options);
    return {parser, [options] { return Conversion(*options).run(); }};
}

}  // namespace tsyn
