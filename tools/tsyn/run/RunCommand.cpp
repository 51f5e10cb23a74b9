#include "tools/tsyn/run/RunCommand.h"

#include <csignal>
#include <cstdio>
#include <ctime>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "tools/tsyn/daemon/RecordView.h"
#include "tools/tsyn/run/HostTime.h"
#include "tools/tsyn/run/InterfaceChecks.h"
#include "tools/tsyn/run/OwnOutput.h"
#include "tools/tsyn/run/SpyThread.h"
#include "tools/tsyn/run/StatusReport.h"
#include "tools/tsyn/run/SubTlvTracker.h"
#include "tools/tsyn/run/SyncTracker.h"
#include "tools/tsyn/run/TruthSampler.h"

namespace tsyn {
namespace {

constexpr double kStatusPeriodS = 1.0;
/** Short against the shortest Sync interval, so that no pair of messages goes unseen. */
constexpr double kWatchPeriodS = 0.02;
/** With a profile, a daemon that has been watched for so long is looked at with each status. */
constexpr double kWatchedS = 5.0;
constexpr double kNever = std::numeric_limits<double>::infinity();

class RunSession {
public:
    explicit RunSession(const RunOptions& options)
        : options_(options),
          tracker_(options.isMaster(), options.syncIntervalMs),
          sampler_(options.truthCard) {}

    int run();

private:
    std::string prepare();
    std::string startDaemon();
    std::string setTimeBase() const;
    void loop();
    bool endSignalledBefore(double wakeS) const;
    void watch();
    bool reportStatus();
    Status currentStatus();
    double elapsedS() const;
    double nextWatch(double nowS, double nextStatusS) const;

    const RunOptions& options_;
    OwnOutput output_;
    RecordView view_;
    SyncTracker tracker_;
    SubTlvTracker subTlvs_;
    TruthSampler sampler_;
    sigset_t endSignals_{};
    bool sparesWakeUps_ = false;
    std::chrono::steady_clock::time_point start_;
};

int fail(const std::string& problem) {
    std::fprintf(stderr, "tsyn: %s\n", problem.c_str());
    return 1;
}

double RunSession::elapsedS() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

int RunSession::run() {
    std::string problem = prepare();
    if (problem.empty()) {
        problem = startDaemon();
    }
    if (!problem.empty()) {
        return fail(problem);
    }
    loop();
    if (sparesWakeUps_) {
        watch();  // the last look may be a second old
    }
    RunSummary summary;
    summary.durationS = elapsedS();
    summary.master = options_.isMaster();
    summary.state = tracker_.state(summary.durationS);
    summary.firstSyncS = tracker_.firstSyncS();
    summary.firstValidS = tracker_.firstValidS();
    summary.samples = sampler_.count();
    summary.record = view_.snapshot();
    summary.subTlvs = &subTlvs_;
    ZebEthTSynInterface_Stop();
    ZebEthTSynInterface_Destroy();
    output_.line(options_.json ? summaryJson(options_.interfaceName, summary)
                               : summaryLine(summary));
    return 0;
}

std::string RunSession::prepare() {
    if (!options_.truthCard.empty()) {
        std::string problem = sampler_.findCard();
        if (!problem.empty()) {
            return problem;
        }
    }
    if (const Problem problem = firstProblem(options_.interfaceName)) {
        return *problem;
    }
    if (!options_.truthCard.empty()) {
        std::string problem =
            sampler_.open(options_.samplesFile, makeProfile(options_).robustTime != 0);
        if (!problem.empty()) {
            return problem;
        }
    }
    if (options_.spy) {
        std::string problem = spyPortProblem();
        if (!problem.empty()) {
            return problem;
        }
    }
    // Blocked before the daemon's threads exist, so that only the loop meets these signals.
    sigemptyset(&endSignals_);
    sigaddset(&endSignals_, SIGINT);
    sigaddset(&endSignals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals_, nullptr);
    return output_.separate(options_.logTarget);
}

std::string RunSession::startDaemon() {
    start_ = std::chrono::steady_clock::now();
    DbgTraceLevel = options_.traceLevel;
    // First, so that nothing of the log waits for a full pipe.
    const TSynProfile profile = makeProfile(options_);
    if (ZebEthTSynInterface_SetProfile(&profile) != 0) {
        return "the daemon refused the profile; its log names the switch";
    }
    const TSynInstanceConfig config = makeConfig(options_);
    if (ZebEthTSynInterface_Create(&config) != 0) {
        return "the daemon refused the configuration; its log names the value";
    }
    sparesWakeUps_ = profile.eventPumps != 0;
    if (ZebEthTSynInterface_Start(0, nullptr, nullptr) != 0) {
        return "the daemon refused to start on " + options_.interfaceName + "; its log tells why";
    }
    return options_.isMaster() ? setTimeBase() : std::string();
}

/** After Create, which clears what these set. */
std::string RunSession::setTimeBase() const {
    const auto status = static_cast<unsigned char>(options_.timeBaseStatus);
    const std::array<unsigned char, 4> userData = makeUserData(options_);
    if (ZebEthTSynInterface_SetTimeBaseStatus(0, status) != 0 ||
        ZebEthTSynInterface_SetUserData(0, userData.data()) != 0) {
        return "the daemon refused the status or the user data; its log names the value";
    }
    return {};
}

void RunSession::loop() {
    const bool comparing = !options_.truthCard.empty();
    const double endS = options_.durationS > 0.0 ? options_.durationS : kNever;
    double nextWatchS = elapsedS();
    double nextSampleS = comparing ? nextWatchS : kNever;
    double nextStatusS = std::ceil(nextWatchS);
    do {
        const double nowS = elapsedS();
        if (nowS >= nextWatchS) {
            watch();
            nextWatchS = nextWatch(nowS, nextStatusS);
        }
        if (nowS >= nextSampleS) {
            sampler_.sample(nowS, tracker_.firstValidS().has_value());
            nextSampleS = std::max(nextSampleS + 1.0 / options_.sampleRateHz, nowS);
        }
        if (nowS >= nextStatusS) {
            if (!reportStatus()) {
                return;
            }
            nextStatusS += kStatusPeriodS;
        }
    } while (!endSignalledBefore(std::min({nextWatchS, nextSampleS, nextStatusS, endS})) &&
             elapsedS() < endS);
}

/** Every message is worth a look until the time is valid, and always where the daemon itself polls.
 *  A daemon that sleeps is not woken for more than the status. */
double RunSession::nextWatch(double nowS, double nextStatusS) const {
    const bool isSettled =
        (options_.isMaster() ? tracker_.firstSyncS() : tracker_.firstValidS()).has_value();
    if (!sparesWakeUps_ || (!isSettled && nowS < kWatchedS)) {
        return nowS + kWatchPeriodS;
    }
    return nextStatusS > nowS ? nextStatusS : nextStatusS + kStatusPeriodS;
}

/** Sleeps until that moment unless a signal asks for the end. */
bool RunSession::endSignalledBefore(double wakeS) const {
    const double waitS = std::clamp(wakeS - elapsedS(), 0.0, kStatusPeriodS);
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(waitS);
    wait.tv_nsec = static_cast<long>(1e9 * (waitS - static_cast<double>(wait.tv_sec)));
    return sigtimedwait(&endSignals_, nullptr, &wait) > 0;
}

/** The first time that the daemon gives maps and clears the record and publishes a configured
 *  link delay; only then is the record looked at. */
void RunSession::watch() {
    if (!view_.isOpen()) {
        if (!currentTime() || !view_.open(options_.interfaceName)) {
            return;
        }
        if (options_.spy) {
            startSpyThread();
        }
    }
    const auto record = view_.snapshot();
    if (!record) {
        return;
    }
    tracker_.update(*record, elapsedS());
    if (const auto subTlvs = currentSubTlvs(); subTlvs && !options_.isMaster()) {
        subTlvs_.update(record->acceptedSync, *subTlvs);
    }
}

Status RunSession::currentStatus() {
    Status status;
    status.elapsedS = elapsedS();
    status.master = options_.isMaster();
    status.state = tracker_.state(status.elapsedS);
    status.record = view_.snapshot();
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    status.systemNs = now.tv_sec * 1000000000LL + now.tv_nsec;
    if (view_.isOpen()) {
        if (const auto time = status.master ? masterTime() : currentTime()) {
            status.hasTime = true;
            status.seconds = time->seconds;
            status.nanoseconds = time->nanoseconds;
        }
    }
    status.subTlvs = &subTlvs_;
    status.truthErrorNs = sampler_.lastErrorNs();
    return status;
}

bool RunSession::reportStatus() {
    const Status status = currentStatus();
    return output_.line(options_.json ? statusJson(options_.interfaceName, status)
                                      : statusLine(status));
}

}  // namespace

int runCommand(const RunOptions& options) {
    RunSession session(options);
    return session.run();
}

}  // namespace tsyn
