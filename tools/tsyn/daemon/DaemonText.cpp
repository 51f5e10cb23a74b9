#include "tools/tsyn/daemon/DaemonText.h"

#include <cstdio>

#include "tools/common/Formatted.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonTime.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

using tools::formatted;

void addTime(std::vector<TextRow>& rows, const DaemonState& daemon, int utcOffsetS) {
    const std::optional<long long> timeNs = shownTimeNs(daemon);
    if (!timeNs) {
        rows.push_back({"time", "none yet"});
        return;
    }
    const Timescale timescale = timescaleOf(*timeNs, daemon.latest().systemNs, utcOffsetS);
    const CivilTime civil = civilTime(*timeNs, timescale, utcOffsetS);
    const char* const when = daemon.sharesClock() ? "" : ", at its last Sync";
    if (!civil.utcNs || !civil.taiNs) {
        rows.push_back({"time", isoText(*timeNs) + "  of an epoch of its own" + when});
        return;
    }
    const bool isUtc = timescale == Timescale::kUtc;
    rows.push_back({"time", isoText(*civil.utcNs) + " UTC" +
                                (isUtc ? std::string("  the daemon's time") + when : "")});
    rows.push_back({"", isoText(*civil.taiNs) + " TAI" +
                            (isUtc ? formatted("  %d s ahead of it", utcOffsetS)
                                   : std::string("  the daemon's time") + when)});
}

/** Of what no deployed daemon tells, and a standard one from its first time on. */
std::string untold(const Look& look, const char* asDeployed) {
    return look.record.localTime != 0 ? asDeployed : "not told yet";
}

std::string masterOf(const Look& look) {
    return look.quality ? masterText(*look.quality, roleOf(look) == DaemonRole::kMaster)
                        : untold(look, "not told: deployed");
}

std::string boundText(const DaemonState& daemon) {
    const Look& look = daemon.latest();
    if (!look.quality) {
        return untold(look, "deployed: no bound");
    }
    const gPtpTimeQuality& quality = *look.quality;
    const std::optional<long long> boundNs = daemon.boundNs();
    if (!boundNs) {
        return "none";
    }
    std::string text =
        formatted("%lld ns%s, growing by %u ns/s", *boundNs,
                  daemon.sharesClock() ? "" : " at its last Sync", quality.boundGrowthPpb);
    if (daemon.sharesClock()) {
        text += formatted(", void in %.0f s",
                          1e-9 * static_cast<double>(quality.voidAfterNs - look.systemNs));
    }
    const std::string moment = isoSecondsText(quality.voidAfterNs);
    return text + (daemon.sharesClock() ? " (" + moment + ")" : ", void after " + moment);
}

std::string flagsText(const Look& look) {
    if (!look.quality) {
        return untold(look, "not told: deployed");
    }
    std::string text;
    for (const std::string& name : flagNames(look.quality->flags)) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text.empty() ? "none" : text;
}

std::string syncText(const DaemonState& daemon) {
    const std::optional<double> ageS = daemon.syncAgeS();
    return (ageS ? formatted("%.3f s ago", *ageS) : std::string("none seen")) +
           formatted(", sequence %u", daemon.latest().record.sequenceId);
}

std::string ownerText(const Owner& owner) {
    if (owner.pid == 0) {
        return owner.life == Owner::Life::kEnded ? "no process" : "not known";
    }
    std::string who =
        std::to_string(owner.pid) + (owner.command.empty() ? "" : " (" + owner.command + ")");
    switch (owner.life) {
    case Owner::Life::kLives:
        return who + ", lives";
    case Owner::Life::kEnded:
        return who + ", has ended";
    default:
        return who;
    }
}

std::string rateText(const Look& look) {
    const std::optional<double> ppm = ratePpm(look.record);
    return ppm ? formatted("%+.3f ppm", *ppm) : "none yet";
}

}  // namespace

std::string headline(const std::string& source, const DaemonState& daemon) {
    const Look& look = daemon.latest();
    return source + ": " + daemon.state() + ", role " + roleName(roleOf(look)) + ", profile " +
           profileName(look);
}

std::vector<TextRow> daemonRows(const DaemonState& daemon, const Owner& owner, int utcOffsetS) {
    const Look& look = daemon.latest();
    const gPtpTimeDataStruct& record = look.record;
    std::vector<TextRow> rows;
    addTime(rows, daemon, utcOffsetS);
    rows.push_back({"last Sync", syncText(daemon)});
    rows.push_back({"master", masterOf(look)});
    rows.push_back({"offset", formatted("%lld ns, card less master", record.masterOffset)});
    rows.push_back({"rate", rateText(look)});
    rows.push_back({"delay", formatted("%lld ns", record.linkDelay)});
    rows.push_back({"bound", boundText(daemon)});
    if (record.softOffset != 0) {
        rows.push_back({"soft offset", formatted("%lld ns, set by the host", record.softOffset)});
    }
    rows.push_back({"flags", flagsText(look)});
    rows.push_back({"sub-TLVs", "not published"});
    rows.push_back({"owner", ownerText(owner)});
    return rows;
}

std::string countersText(const Look& look) {
    std::string text;
    for (const Counter& counter : countersOf(look)) {
        text += formatted("%s%s %u", text.empty() ? "" : "  ", counter.label, counter.value);
    }
    return text;
}

std::string daemonLine(const std::string& source, const DaemonState& daemon) {
    const Look& look = daemon.latest();
    const gPtpTimeDataStruct& record = look.record;
    const std::optional<double> ageS = daemon.syncAgeS();
    std::string line =
        formatted("%s  %-12s  offset %lld ns  rate %s  delay %lld ns  last Sync %s", source.c_str(),
                  daemon.state(), record.masterOffset, rateText(look).c_str(), record.linkDelay,
                  ageS ? formatted("%.3f s", *ageS).c_str() : "-");
    if (look.quality) {
        const std::optional<long long> boundNs = daemon.boundNs();
        line += "  bound " + (boundNs ? formatted("%lld ns", *boundNs) : std::string("-"));
    }
    return line + "  " + countersText(look);
}

}  // namespace tsyn
