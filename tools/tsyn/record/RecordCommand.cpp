#include "tools/tsyn/record/RecordCommand.h"

#include <sys/utsname.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/tsyn/Abi.h"
#include "tools/tsyn/record/LookTimes.h"
#include "tools/tsyn/record/RecordWatch.h"
#include "tools/tsyn/record/Recording.h"
#include "tools/tsyn/record/RotatingFile.h"

namespace tsyn {
namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kLongestWaitS = 1.0;
/** A pause between two samples is a gap when it is this much longer than it should be. */
constexpr double kLateS = 2.0;

double monotonicNowS() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

long long systemNowNs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

std::string utcText(long long systemNs) {
    const auto seconds = static_cast<time_t>(systemNs / 1000000000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string headOf(const RecordOptions& options) {
    utsname machine{};
    uname(&machine);
    const long long nowNs = systemNowNs();
    nlohmann::ordered_json about = {{"interface", options.interfaceName},
                                    {"start", utcText(nowNs)},
                                    {"start_ns", nowNs},
                                    {"rate", options.rate},
                                    {"tsyn", TSYN_VERSION},
                                    {"abi", abiName()},
                                    {"host", machine.nodename},
                                    {"kernel", machine.release}};
    return kRecordingMagic +
           about.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n" +
           recordingColumns() + "\n";
}

class RecordSession {
public:
    explicit RecordSession(const RecordOptions& options)
        : options_(options),
          watch_(options.interfaceName),
          times_(options.rateHz()),
          file_(options.file, {options.maxBytes(), options.kept}) {}

    int run();

private:
    std::string begin();
    bool endSignalledBefore(double wakeS) const;
    std::string lookOnce();
    std::string takeRecord(const gPtpTimeDataStruct& record, double nowS, long long systemNs);
    std::string noteGap(double nowS, long long systemNs);
    std::string noteEvent(const char* kind, long long systemNs, const std::string& text);
    void printSummary() const;

    const RecordOptions& options_;
    RecordWatch watch_;
    LookTimes times_;
    RotatingFile file_;
    sigset_t endSignals_{};
    double startS_ = 0.0;
    double lookS_ = 0.0;
    std::string missing_;
    double sampleS_ = 0.0;
    unsigned long samples_ = 0;
    unsigned long restarts_ = 0;
    unsigned long gaps_ = 0;
    double longestGapS_ = 0.0;
};

int fail(const std::string& problem) {
    std::fprintf(stderr, "tsyn: %s\n", problem.c_str());
    return 1;
}

/** A reader that leaves and a file that is too long end in an error of write, not in a signal. */
std::string RecordSession::begin() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigemptyset(&endSignals_);
    sigaddset(&endSignals_, SIGINT);
    sigaddset(&endSignals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals_, nullptr);
    startS_ = monotonicNowS();
    lookS_ = startS_;
    sampleS_ = startS_;
    if (!options_.waits && !watch_.look(startS_)) {
        return watch_.problem() + "; start a daemon on " + options_.interfaceName +
               " first, or let --wait wait for one";
    }
    return file_.open(headOf(options_), options_.replaces);
}

int RecordSession::run() {
    std::string problem = begin();
    const double endS = options_.durationS > 0.0 ? startS_ + options_.durationS : kNever;
    while (problem.empty() && monotonicNowS() < endS) {
        problem = lookOnce();
        if (!problem.empty() || endSignalledBefore(std::min(lookS_, endS))) {
            break;
        }
    }
    if (problem.empty() && !missing_.empty()) {
        problem = noteGap(monotonicNowS(), systemNowNs());
    }
    if (problem.empty()) {
        problem = noteEvent("end", systemNowNs(), std::to_string(samples_) + " samples");
    }
    if (problem.empty()) {
        problem = file_.close();
    }
    if (!problem.empty()) {
        return fail(problem);
    }
    printSummary();
    return 0;
}

/** Sleeps until that moment unless a signal asks for the end. */
bool RecordSession::endSignalledBefore(double wakeS) const {
    while (monotonicNowS() < wakeS) {
        const double waitS = std::clamp(wakeS - monotonicNowS(), 0.0, kLongestWaitS);
        timespec wait{};
        wait.tv_sec = static_cast<time_t>(waitS);
        wait.tv_nsec = static_cast<long>(1e9 * (waitS - static_cast<double>(wait.tv_sec)));
        if (sigtimedwait(&endSignals_, nullptr, &wait) > 0) {
            return true;
        }
    }
    const timespec none{};
    return sigtimedwait(&endSignals_, nullptr, &none) > 0;
}

std::string RecordSession::lookOnce() {
    const double nowS = monotonicNowS();
    const auto record = watch_.look(nowS);
    const long long systemNs = systemNowNs();
    if (!record) {
        missing_ = watch_.problem();
        lookS_ = nowS + kLongestWaitS;
        return {};
    }
    std::string problem = takeRecord(*record, nowS, systemNs);
    lookS_ = times_.nextS(nowS);
    return problem;
}

std::string RecordSession::takeRecord(const gPtpTimeDataStruct& record, double nowS,
                                      long long systemNs) {
    if (!times_.isSample(nowS, watch_.hasChanged())) {
        return {};
    }
    const double periodS = 1.0 / std::min(1.0, options_.rateHz().value_or(1.0));
    const bool isLate = samples_ > 0 && nowS - sampleS_ > periodS + kLateS;
    std::string problem;
    if (!missing_.empty() || isLate) {
        problem = noteGap(nowS, systemNs);
    }
    if (problem.empty() && watch_.hasRestarted()) {
        ++restarts_;
        problem = noteEvent("restart", systemNs, "the daemon began anew");
    }
    if (problem.empty()) {
        problem =
            file_.writeLine(recordingLine(sampleOf(record, systemNs, times_.sinceChangeS(nowS))));
    }
    ++samples_;
    sampleS_ = nowS;
    return problem;
}

std::string RecordSession::noteGap(double nowS, long long systemNs) {
    const double gapS = nowS - sampleS_;
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.3f s ", gapS);
    ++gaps_;
    longestGapS_ = std::max(longestGapS_, gapS);
    const std::string why = missing_.empty() ? "tsyn record was not let run" : missing_;
    missing_.clear();
    return noteEvent("gap", systemNs, seconds + why);
}

std::string RecordSession::noteEvent(const char* kind, long long systemNs,
                                     const std::string& text) {
    return file_.writeLine(std::string("# ") + kind + " " + std::to_string(systemNs) + " " + text);
}

void RecordSession::printSummary() const {
    std::fprintf(options_.file == "-" ? stderr : stdout,
                 "%lu samples in %.1f s, %llu bytes to %s, %u rotations; %lu restarts, %lu gaps "
                 "(longest %.1f s)\n",
                 samples_, monotonicNowS() - startS_,
                 static_cast<unsigned long long>(file_.writtenBytes()), options_.file.c_str(),
                 file_.rotations(), restarts_, gaps_, longestGapS_);
}

}  // namespace

int recordCommand(const RecordOptions& options) {
    RecordSession session(options);
    return session.run();
}

}  // namespace tsyn
