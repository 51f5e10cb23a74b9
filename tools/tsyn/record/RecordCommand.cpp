#include "tools/tsyn/record/RecordCommand.h"

#include <sys/utsname.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>
#include <thread>

#include "tools/tsyn/Abi.h"
#include "tools/tsyn/Failure.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/Owner.h"
#include "tools/tsyn/daemon/SegmentSource.h"
#include "tools/tsyn/record/LookTimes.h"
#include "tools/tsyn/record/Recording.h"
#include "tools/tsyn/record/RotatingFile.h"

namespace tsyn {
namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kLongestWaitS = 1.0;
/** A pause between two samples is a gap when it is this much longer than it should be. */
constexpr double kLateS = 2.0;
/** A record that moved so lately has a daemon. */
constexpr double kSilentS = 1.5;
constexpr auto kBetweenLooks = std::chrono::milliseconds(20);

std::string headOf(const RecordOptions& options) {
    utsname machine{};
    uname(&machine);
    const long long nowNs = systemNowNs();
    nlohmann::ordered_json about = {{"interface", options.interfaceName},
                                    {"start", isoSecondsText(nowNs) + "Z"},
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

/** Whoever begins to look knows by the record alone for how long it has been silent. */
double sinceSyncS(const Look& look, const LookTimes& times) {
    const double seenS = times.sinceChangeS(look.monotonicS);
    const std::optional<long long> syncNs = times.hasSeenChange() ? std::nullopt : lastSyncNs(look);
    return syncNs ? std::max(seenS, 1e-9 * static_cast<double>(look.systemNs - *syncNs)) : seenS;
}

bool showsSync(const Look& before, const Look& now) {
    return now.record.acceptedSync != before.record.acceptedSync ||
           now.record.sequenceId != before.record.sequenceId;
}

class RecordSession {
public:
    explicit RecordSession(const RecordOptions& options)
        : options_(options),
          source_(options.interfaceName),
          daemon_(true, kSilentS),
          times_(options.rateHz()),
          file_(options.file, {options.maxBytes(), options.kept}) {}

    int run();

private:
    std::string begin();
    bool watchSegment();
    bool ownerHasEnded(const Look& look);
    std::string lookAtLife(const Look& look);
    bool endSignalledBefore(double wakeS) const;
    std::string lookOnce();
    std::string takeLook(const Look& look);
    std::string noteGap(double nowS, long long systemNs);
    std::string noteEvent(const char* kind, long long systemNs, const std::string& text);
    void printSummary() const;

    const RecordOptions& options_;
    SegmentSource source_;
    DaemonState daemon_;
    OwnerFinder finder_;
    Owner owner_;
    double checkS_ = 0.0;
    bool isEnded_ = false; /**< which was told */
    std::optional<Look> last_;
    bool hasRestarted_ = false;
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
    if (!options_.waits && !watchSegment()) {
        const std::string problem =
            isEnded_ ? source_.name() + ": " + whoEnded(owner_) : source_.problem();
        return problem + "; --wait waits for a daemon";
    }
    return file_.open(headOf(options_), options_.replaces);
}

/** Whether there is a record that a daemon has, or moves: which takes as long as a Sync may. */
bool RecordSession::watchSegment() {
    std::optional<Look> look = source_.look(0.0);
    if (!look) {
        return false;
    }
    for (daemon_.update(*look); ownerHasEnded(*look); daemon_.update(*look)) {
        if (monotonicNowS() > startS_ + kSilentS) {
            isEnded_ = true;
            return false;
        }
        std::this_thread::sleep_for(kBetweenLooks);
        look = source_.look(0.0);
        if (!look) {
            return false;
        }
    }
    return true;
}

bool RecordSession::ownerHasEnded(const Look& look) {
    owner_ = finder_.find(look, source_.segmentFile());
    return hasEnded(owner_, daemon_);
}

/** Says once that the daemon has ended. Its owner is looked for only while nothing moves. */
std::string RecordSession::lookAtLife(const Look& look) {
    daemon_.update(look);
    const bool isDue = !daemon_.isMoving() && look.monotonicS >= checkS_;
    if (!isDue && !(isEnded_ && daemon_.isMoving())) {
        return {};
    }
    checkS_ = look.monotonicS + kLongestWaitS;
    const bool wasEnded = isEnded_;
    isEnded_ = look.monotonicS > startS_ + kSilentS && ownerHasEnded(look);
    if (!isEnded_ || wasEnded) {
        return {};
    }
    std::fprintf(stderr, "tsyn: %s: %s; its last record is sampled until a daemon runs\n",
                 options_.interfaceName.c_str(), whoEnded(owner_).c_str());
    return noteEvent("ended", look.systemNs, whoEnded(owner_));
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
    const auto look = source_.look(0.0);
    if (!look) {
        missing_ = source_.problem();
        lookS_ = monotonicNowS() + kLongestWaitS;
        return {};
    }
    std::string problem = lookAtLife(*look);
    if (problem.empty()) {
        problem = takeLook(*look);
    }
    last_ = look;
    lookS_ = times_.nextS(look->monotonicS);
    return problem;
}

std::string RecordSession::takeLook(const Look& look) {
    const double nowS = look.monotonicS;
    hasRestarted_ = hasRestarted_ || (last_ && beganAnew(*last_, look));
    if (!times_.isSample(nowS, last_ && showsSync(*last_, look))) {
        return {};
    }
    const double periodS = 1.0 / std::min(1.0, options_.rateHz().value_or(1.0));
    const bool isLate = samples_ > 0 && nowS - sampleS_ > periodS + kLateS;
    std::string problem;
    if (!missing_.empty() || isLate) {
        problem = noteGap(nowS, look.systemNs);
    }
    if (problem.empty() && hasRestarted_) {
        hasRestarted_ = false;
        ++restarts_;
        problem = noteEvent("restart", look.systemNs, "the daemon began anew");
    }
    if (problem.empty()) {
        problem = file_.writeLine(
            recordingLine(sampleOf(look.record, look.systemNs, sinceSyncS(look, times_))));
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
