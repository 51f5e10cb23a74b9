#include "tools/tsyn/run/RunCommand.h"

#include <csignal>
#include <cstdio>
#include <ctime>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

#include "tools/tsyn/Failure.h"
#include "tools/tsyn/control/ControlSocket.h"
#include "tools/tsyn/daemon/Look.h"
#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/daemon/RecordView.h"
#include "tools/tsyn/run/DaemonLock.h"
#include "tools/tsyn/run/HostTime.h"
#include "tools/tsyn/run/InterfaceChecks.h"
#include "tools/tsyn/run/InterfacePresence.h"
#include "tools/tsyn/run/LiveSettings.h"
#include "tools/tsyn/run/LogOutput.h"
#include "tools/tsyn/run/OwnOutput.h"
#include "tools/tsyn/run/SenderWatch.h"
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
/** At least twice each Sync interval, which is what a count of Follow_Ups takes. */
constexpr double kSubTlvPeriodS = 0.05;
/** With a profile, a daemon that has been watched for so long is looked at with each status. */
constexpr double kWatchedS = 5.0;
/** All that would end the process without a closing line, the one that logs are rotated with, and
 *  the one that requests raise. */
constexpr int kSignals[] = {SIGIO,   SIGHUP,    SIGINT,  SIGTERM, SIGQUIT, SIGALRM,
                            SIGUSR2, SIGVTALRM, SIGPROF, SIGXCPU, SIGPWR};
constexpr double kNever = std::numeric_limits<double>::infinity();

class RunSession {
public:
    explicit RunSession(const RunOptions& options)
        : options_(options),
          presence_(options.interfaceName, makeProfile(options).followLink != 0),
          tracker_(options.isMaster(), options.syncIntervalMs),
          senders_(options.syncIntervalMs),
          sampler_(options.truthCard) {}

    int run();

private:
    std::string prepare();
    std::string startDaemon();
    std::string setTimeBase() const;
    std::string openControl();
    void serveControl();
    std::string loop();
    bool endSignalledBefore(double wakeS);
    void reopenLog();
    void reportLogLoss();
    std::string end();
    void watch();
    std::string reportStatus();
    std::string put(const std::string& line);
    Status currentStatus();
    double elapsedS() const;
    double nextWatch(double nowS, double nextStatusS) const;

    const RunOptions& options_;
    OwnOutput output_;
    InterfacePresence presence_;
    ControlSocket control_;
    RecordView view_;
    SyncTracker tracker_;
    SenderWatch senders_;
    SubTlvTracker subTlvs_;
    TruthSampler sampler_;
    sigset_t signals_{};
    bool sparesWakeUps_ = false;
    bool follows_ = false; /**< an interface that comes back is set up again */
    bool isGone_ = false;
    bool logLost_ = false;
    std::chrono::steady_clock::time_point start_;
};

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
    problem = loop();
    if (sparesWakeUps_) {
        watch();  // the last look may be a second old
    }
    for (const std::string& other : {end(), sampler_.finish()}) {
        problem = problem.empty() ? other : problem;
    }
    if (!problem.empty()) {
        return fail(problem);
    }
    reportLogLoss();
    return logLost_ ? 1 : 0;
}

/** Returns why the closing line was not written, empty when it was. */
std::string RunSession::end() {
    RunSummary summary;
    summary.durationS = elapsedS();
    summary.master = options_.isMaster();
    summary.state = isGone_ ? SyncState::kGone : tracker_.state(summary.durationS);
    summary.firstSyncS = tracker_.firstSyncS();
    summary.firstValidS = tracker_.firstValidS();
    summary.samples = sampler_.count();
    summary.record = view_.snapshot();
    summary.systemNs = summary.record && qualityOf(*summary.record) ? systemNowNs() : 0;
    summary.subTlvs = &subTlvs_;
    ZebEthTSynInterface_Stop();
    ZebEthTSynInterface_Destroy();
    return put(options_.json ? summaryJson(options_.interfaceName, summary) : summaryLine(summary));
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
    if (makeProfile(options_).oneDaemon != 0) {
        // Before the library, whose log would say the same at length.
        std::string problem = runningBeside(options_.interfaceName);
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
    sigemptyset(&signals_);
    for (const int number : kSignals) {
        sigaddset(&signals_, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    return output_.separate(options_.logTarget);
}

std::string RunSession::startDaemon() {
    start_ = std::chrono::steady_clock::now();
    DbgTraceLevel = options_.traceLevel;
    // First, so that nothing of the log waits for a full pipe.
    TSynProfile profile = makeProfile(options_);
    log_output::watch(profile);
    if (ZebEthTSynInterface_SetProfile(&profile) != 0) {
        return "the daemon refused the profile; its log names the switch";
    }
    const TSynInstanceConfig config = makeConfig(options_);
    if (ZebEthTSynInterface_Create(&config) != 0) {
        return "the daemon refused the configuration; its log names the value";
    }
    sparesWakeUps_ = profile.eventPumps != 0;
    follows_ = profile.followLink != 0 && !options_.endWhenGone;
    if (ZebEthTSynInterface_Start(0, nullptr, nullptr) != 0) {
        return whyRefused(options_.interfaceName);
    }
    const std::string problem = options_.isMaster() ? setTimeBase() : std::string();
    return problem.empty() ? openControl() : problem;
}

std::string RunSession::openControl() {
    if (options_.controlPath.empty()) {
        return {};
    }
    if (options_.controlPath != "auto") {
        return control_.open(options_.controlPath);
    }
    std::string problem;
    for (const std::string& path : controlPaths(options_.interfaceName)) {
        problem = control_.open(path);
        if (problem.empty()) {
            break;
        }
    }
    return problem;
}

void RunSession::serveControl() {
    control_.serve(
        [this](const std::string& request) { return answerSettingRequest(request, options_); });
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

/** Returns why it ended too early, empty when its end was asked for. */
std::string RunSession::loop() {
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
            if (std::string problem = reportStatus(); !problem.empty()) {
                return problem;
            }
            // Those that a stopped process missed are left out.
            nextStatusS = std::max(nextStatusS + kStatusPeriodS, std::ceil(nowS));
        }
    } while (!endSignalledBefore(std::min({nextWatchS, nextSampleS, nextStatusS, endS})) &&
             elapsedS() < endS);
    return {};
}

/** Every message is worth a look until the time is valid, and always where the daemon itself polls.
 *  A daemon that sleeps is not woken for more than the status and sub-TLVs, which are counted. */
double RunSession::nextWatch(double nowS, double nextStatusS) const {
    const bool isSettled =
        (options_.isMaster() ? tracker_.firstSyncS() : tracker_.firstValidS()).has_value();
    if (!sparesWakeUps_ || (!isSettled && nowS < kWatchedS)) {
        return nowS + kWatchPeriodS;
    }
    if (subTlvs_.followUps() > 0) {
        return nowS + kSubTlvPeriodS;
    }
    return nextStatusS > nowS ? nextStatusS : nextStatusS + kStatusPeriodS;
}

/** Sleeps until that moment unless a signal asks for something; true when it is the end. */
bool RunSession::endSignalledBefore(double wakeS) {
    const double waitS = std::clamp(wakeS - elapsedS(), 0.0, kStatusPeriodS);
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(waitS);
    wait.tv_nsec = static_cast<long>(1e9 * (waitS - static_cast<double>(wait.tv_sec)));
    const int number = sigtimedwait(&signals_, nullptr, &wait);
    if (number == SIGHUP) {
        reopenLog();
    } else if (number == SIGIO) {
        serveControl();
    }
    return number > 0 && number != SIGHUP && number != SIGIO;
}

void RunSession::reopenLog() {
    const std::string problem = log_output::reopen(options_.logTarget);
    if (!problem.empty()) {
        std::fprintf(stderr, "tsyn: %s\n", problem.c_str());
    }
}

/** Time is worth more than its log, so that tsyn goes on; its status tells in the end. */
void RunSession::reportLogLoss() {
    if (!logLost_ && log_output::failure() != 0) {
        logLost_ = true;
        std::fprintf(stderr, "tsyn: --log %s: lines are lost, they cannot be written (%s)\n",
                     options_.logTarget.c_str(), std::strerror(log_output::failure()));
    }
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
    senders_.update(*record, elapsedS());
    if (const auto subTlvs = currentSubTlvs(); subTlvs && !options_.isMaster()) {
        subTlvs_.update(record->acceptedSync, *subTlvs);
    }
}

Status RunSession::currentStatus() {
    Status status;
    status.elapsedS = elapsedS();
    status.master = options_.isMaster();
    status.record = view_.snapshot();
    if (status.record) {
        // The state has to be that of the record that is shown beside it.
        tracker_.update(*status.record, status.elapsedS);
    }
    status.state = isGone_ ? SyncState::kGone : tracker_.state(status.elapsedS);
    status.twoSenders = !status.master && senders_.seesTwo();
    status.systemNs = systemNowNs();
    if (view_.isOpen()) {
        const long long softOffsetNs = status.record ? status.record->softOffset : 0;
        const auto time = status.master ? distributedTime(softOffsetNs) : currentTime();
        // A slave that has heard no master is at zero.
        if (time && (status.master || time->totalNs() != 0)) {
            status.hasTime = true;
            status.seconds = time->seconds;
            status.nanoseconds = time->nanoseconds;
        }
    }
    status.subTlvs = &subTlvs_;
    status.truthErrorNs = sampler_.lastErrorNs();
    return status;
}

/** Returns why tsyn has to end, empty when it goes on. */
std::string RunSession::reportStatus() {
    isGone_ = !presence_.isThere();
    serveControl();
    const Status status = currentStatus();
    std::string problem =
        put(options_.json ? statusJson(options_.interfaceName, status) : statusLine(status));
    if (problem.empty() && isGone_ && !follows_) {
        problem =
            options_.interfaceName + ": the interface is gone; start tsyn again when it is back";
    }
    reportLogLoss();
    return problem.empty() ? sampler_.writeProblem() : problem;
}

/** Returns why the line was not written, empty when it was. */
std::string RunSession::put(const std::string& line) {
    if (output_.line(line)) {
        return {};
    }
    return std::string("standard output cannot be written (") + std::strerror(errno) + ")";
}

}  // namespace

int runCommand(const RunOptions& options) {
    RunSession session(options);
    return session.run();
}

}  // namespace tsyn
