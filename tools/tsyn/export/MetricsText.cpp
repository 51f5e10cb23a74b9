#include "tools/tsyn/export/MetricsText.h"

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "base/Extended80.h"
#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonTime.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

/** All words of DaemonState, so that each has a series from the beginning on. */
constexpr const char* kStates[] = {"no master",    "acquiring", "synchronised", "holdover",
                                   "lost",         "unknown",   "no sync yet",  "priming",
                                   "rate refused", "stale",     "sending"};

/** What Counters.h counts, for people. */
constexpr struct {
    const char* key;
    const char* help;
} kCounterHelp[] = {
    {"sync_accepted", "Sync messages that were used."},
    {"sync_rejected", "Sync messages that were not used."},
    {"pdelay_incomplete", "Delay measurements that missed a message."},
    {"ignored_frames", "Frames of masters that are not believed."},
    {"unstamped_frames", "Frames that the card told no receive time of."},
    {"stray_stamps", "Transmit times that belonged to no frame waited for."},
    {"unused_exchanges", "Delay measurements that several ports answered."},
    {"refused_samples", "Syncs that no rate or time in reach explains."},
    {"steps", "Announced steps of the time."},
};

const char* helpOf(const Counter& counter) {
    for (const auto& each : kCounterHelp) {
        if (std::strcmp(each.key, counter.key) == 0) {
            return each.help;
        }
    }
    return counter.label;
}

std::string escaped(const std::string& value) {
    std::string text;
    for (const char character : value) {
        if (character == '\n') {
            text += "\\n";
            continue;
        }
        if (character == '\\' || character == '"') {
            text += '\\';
        }
        text += character;
    }
    return text;
}

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

double seconds(long long ns) {
    return 1e-9 * static_cast<double>(ns);
}

class Metrics {
public:
    explicit Metrics(const std::string& source) : source_(source) {}

    void describe(const std::string& name, const char* type, const char* help) {
        text_ += "# HELP tsyn_" + name + " " + help + "\n# TYPE tsyn_" + name + " " + type + "\n";
    }
    void value(const std::string& name, double value, const Labels& labels = {}) {
        text_ += "tsyn_" + name + "{interface=\"" + escaped(source_) + "\"";
        for (const auto& [label, word] : labels) {
            text_ += "," + label + "=\"" + escaped(word) + "\"";
        }
        text_ += "} " + number(value) + "\n";
    }
    void gauge(const std::string& name, const char* help, double told) {
        describe(name, "gauge", help);
        value(name, told);
    }
    const std::string& text() const { return text_; }

private:
    std::string source_;
    std::string text_;
};

constexpr const char* kUpHelp = "Whether there is a record whose daemon runs, as far as is known.";
constexpr const char* kSynchronisedHelp =
    "Whether a slave is synchronised, or a master sends; holdover is neither.";

void addState(Metrics& metrics, const DaemonState& daemon) {
    metrics.describe("state", "gauge", "State of the daemon: 1 for the one that it is in.");
    for (const char* const state : kStates) {
        metrics.value("state", std::strcmp(state, daemon.state()) == 0 ? 1 : 0, {{"state", state}});
    }
}

void addInfo(Metrics& metrics, const DaemonState& daemon, const Owner& owner) {
    const Look& look = daemon.latest();
    metrics.describe("daemon_info", "gauge", "What the daemon is, in its labels.");
    metrics.value("daemon_info", 1,
                  {{"role", roleName(roleOf(look))},
                   {"profile", profileName(look)},
                   {"master", look.quality ? identityText(*look.quality) : ""}});
    if (owner.life != Owner::Life::kUnknown) {
        metrics.gauge("owner_up", "Whether the process that writes the record runs.",
                      owner.life == Owner::Life::kLives ? 1 : 0);
    }
}

void addTime(Metrics& metrics, const DaemonState& daemon, int utcOffsetS) {
    const Look& look = daemon.latest();
    const std::optional<long long> timeNs = shownTimeNs(daemon);
    if (!timeNs || !daemon.sharesClock()) {
        return;
    }
    const Timescale timescale = timescaleOf(*timeNs, look.systemNs, utcOffsetS);
    metrics.describe("timescale", "gauge",
                     "What the time of the daemon counts: 1 for what it does.");
    for (const Timescale each : {Timescale::kUtc, Timescale::kTai, Timescale::kOwn}) {
        metrics.value("timescale", each == timescale ? 1 : 0, {{"timescale", timescaleName(each)}});
    }
    if (const auto utcNs = civilTime(*timeNs, timescale, utcOffsetS).utcNs) {
        metrics.gauge("system_clock_offset_seconds",
                      "System clock of this host less the time of the daemon.",
                      seconds(look.systemNs - *utcNs));
    }
}

void addQuality(Metrics& metrics, const DaemonState& daemon) {
    const gPtpTimeDataStruct& record = daemon.latest().record;
    if (lastSyncNs(daemon.latest())) {
        metrics.gauge("master_offset_seconds",
                      "Clock of the card less that of the master, at the last Sync.",
                      seconds(record.masterOffset));
    }
    if (ratePpm(record)) {
        metrics.gauge("rate_ratio", "Rate of the master over that of the card.",
                      static_cast<double>(loadExtended(record.rateRatio1)));
    }
    metrics.gauge("link_delay_seconds", "Delay of the cable, measured or configured.",
                  seconds(record.linkDelay));
    if (const std::optional<double> ageS = daemon.syncAgeS()) {
        metrics.gauge("last_sync_age_seconds", "Time since the last Sync.", *ageS);
    }
    if (const std::optional<long long> boundNs = daemon.boundNs()) {
        metrics.gauge("error_bound_seconds", "Error of the daemon's time, at most.",
                      seconds(*boundNs));
    }
    const std::optional<gPtpTimeQuality>& quality = daemon.latest().quality;
    if (daemon.sharesClock() && quality && quality->voidAfterNs != 0) {
        metrics.gauge("error_bound_void_after_seconds",
                      "System time since 1970 after which the bound says nothing.",
                      seconds(quality->voidAfterNs));
    }
}

void addCounters(Metrics& metrics, const Look& look) {
    for (const Counter& counter : countersOf(look)) {
        const std::string name = std::string(counter.key) + "_total";
        metrics.describe(name, "counter", helpOf(counter));
        metrics.value(name, counter.value);
    }
}

}  // namespace

std::string metricsText(const std::string& source, const DaemonState& daemon, const Owner& owner,
                        int utcOffsetS) {
    const bool isUp = !hasEnded(owner, daemon);
    Metrics metrics(source);
    metrics.gauge("up", kUpHelp, isUp ? 1 : 0);
    metrics.gauge("synchronised", kSynchronisedHelp,
                  isUp && daemon.verdict() == Verdict::kGood ? 1 : 0);
    addState(metrics, daemon);
    addInfo(metrics, daemon, owner);
    addTime(metrics, daemon, utcOffsetS);
    addQuality(metrics, daemon);
    addCounters(metrics, daemon.latest());
    return metrics.text();
}

std::string metricsTextWithout(const std::string& source) {
    Metrics metrics(source);
    metrics.gauge("up", kUpHelp, 0);
    metrics.gauge("synchronised", kSynchronisedHelp, 0);
    return metrics.text();
}

}  // namespace tsyn
