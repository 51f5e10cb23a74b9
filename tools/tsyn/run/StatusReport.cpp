#include "tools/tsyn/run/StatusReport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/common/Formatted.h"
#include "tools/tsyn/Abi.h"
#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

using tools::formatted;

std::string timeText(const Status& status) {
    return status.hasTime ? formatted("%llu.%09u", status.seconds, status.nanoseconds) : "-";
}

Json secondsOrNull(const std::optional<double>& value) {
    return value ? Json(*value) : Json(nullptr);
}

/** A daemon that tells its own state knows it better than its host, who sees the pairs alone.
 *  seen: a Status or a RunSummary. */
template <typename Seen>
const char* stateOf(const Seen& seen) {
    const bool isRunning = seen.state != SyncState::kStarting && seen.state != SyncState::kGone;
    const auto quality =
        seen.record && !seen.master && isRunning ? qualityOf(*seen.record) : std::nullopt;
    return quality ? timeStateAt(*quality, seen.systemNs) : stateName(seen.state);
}

bool hasSubTlvs(const SubTlvTracker* tracker) {
    return tracker != nullptr && tracker->last();
}

std::string userDataText(const TSynUserData& userData) {
    std::string text;
    for (std::size_t i = 0; i < std::min<std::size_t>(userData.length, sizeof userData.bytes);
         ++i) {
        text += formatted("%02x", userData.bytes[i]);
    }
    return text;
}

std::string subTlvText(const SubTlvTracker& tracker) {
    const SubTlvReading& last = *tracker.last();
    const std::string userData = userDataText(last.userData);
    return formatted("  tlv %s (%lu of %lu valid) status 0x%02x user data %s",
                     allCrcsValid(last) ? "valid" : "WRONG CRC", tracker.allValid(),
                     tracker.followUps(), last.status, userData.empty() ? "-" : userData.c_str());
}

Json subTlvJson(const SubTlvTracker& tracker) {
    const SubTlvReading& last = *tracker.last();
    Json valid = Json::object();
    for (unsigned int i = 0; i < recordedCrcs(last); ++i) {
        const unsigned int kind = last.report.crcKinds[i];
        if (kind < kCrcFieldCount) {
            valid[crcFieldName(static_cast<CrcField>(kind))] = last.report.valid[i] == 1;
        }
    }
    return {{"count", static_cast<unsigned int>(last.report.count)},
            {"valid", valid},
            {"status", last.status},
            {"user_data", userDataText(last.userData)},
            {"follow_ups", tracker.followUps()},
            {"all_valid", tracker.allValid()}};
}

std::optional<double> validAfterSync(const RunSummary& summary) {
    if (!summary.firstSyncS || !summary.firstValidS) {
        return {};
    }
    return *summary.firstValidS - *summary.firstSyncS;
}

}  // namespace

std::string statusLine(const Status& status) {
    std::string line = formatted("%6.1f s  %-12s  time %s", status.elapsedS, stateOf(status),
                                 timeText(status).c_str());
    if (status.record) {
        const gPtpTimeDataStruct& record = *status.record;
        line += formatted("  seq %u", record.sequenceId);
        if (!status.master) {
            line += formatted(
                "  offset %lld ns  rate %+.3f ppm  link %lld ns  sync %u accepted %u rejected",
                record.masterOffset, ratePpm(record).value_or(0.0), record.linkDelay,
                record.acceptedSync, record.rejectedSync);
        }
        if (status.twoSenders) {
            line += "  two senders";
        }
        if (const auto quality = qualityOf(record)) {
            line += qualityText(*quality, record, status.systemNs, status.master);
        }
    }
    if (hasSubTlvs(status.subTlvs)) {
        line += subTlvText(*status.subTlvs);
    }
    if (status.truthErrorNs) {
        line += formatted("  error %+lld ns", *status.truthErrorNs);
    }
    return line;
}

std::string statusJson(const std::string& interfaceName, const Status& status) {
    Json json = {{"event", "status"},
                 {"interface", interfaceName},
                 {"role", status.master ? "master" : "slave"},
                 {"t_s", status.elapsedS},
                 {"state", stateOf(status)},
                 {"seconds", nullptr},
                 {"nanoseconds", nullptr}};
    if (status.hasTime) {
        json["seconds"] = status.seconds;
        json["nanoseconds"] = status.nanoseconds;
    }
    if (status.record) {
        const gPtpTimeDataStruct& record = *status.record;
        // Converted first: no reference may be bound to a member of the packed record.
        json["sequence_id"] = static_cast<unsigned int>(record.sequenceId);
        json["offset_ns"] = static_cast<long long>(record.masterOffset);
        json["rate_ppm"] = ratePpm(record).value_or(0.0);
        json["link_delay_ns"] = static_cast<long long>(record.linkDelay);
        json["sync_accepted"] = static_cast<unsigned int>(record.acceptedSync);
        json["sync_rejected"] = static_cast<unsigned int>(record.rejectedSync);
        json["two_senders"] = status.twoSenders;
        if (const auto quality = qualityOf(record)) {
            json["quality"] = qualityJson(*quality, record, status.systemNs);
        }
    }
    if (hasSubTlvs(status.subTlvs)) {
        json["subtlv"] = subTlvJson(*status.subTlvs);
    }
    if (status.truthErrorNs) {
        json["error_ns"] = *status.truthErrorNs;
    }
    json["rss_kib"] = residentKib();
    return json.dump();
}

std::string summaryLine(const RunSummary& summary) {
    std::string line = formatted("end after %.1f s, %s", summary.durationS, stateOf(summary));
    if (!summary.master && summary.firstValidS) {
        line += formatted(", valid after %.3f s (%.3f s after the first Sync)",
                          *summary.firstValidS, validAfterSync(summary).value_or(0.0));
    }
    return line + formatted(", %ld KiB resident", residentKib());
}

std::string summaryJson(const std::string& interfaceName, const RunSummary& summary) {
    Json json = {{"event", "end"},
                 {"interface", interfaceName},
                 {"role", summary.master ? "master" : "slave"},
                 {"abi", abiName()},
                 {"duration_s", summary.durationS},
                 {"state", stateOf(summary)},
                 {"first_sync_s", secondsOrNull(summary.firstSyncS)},
                 {"first_valid_s", secondsOrNull(summary.firstValidS)},
                 {"first_valid_after_sync_s", secondsOrNull(validAfterSync(summary))},
                 {"samples", summary.samples},
                 {"rss_kib", residentKib()}};
    if (summary.record) {
        json["link_delay_ns"] = static_cast<long long>(summary.record->linkDelay);
        json["sync_accepted"] = static_cast<unsigned int>(summary.record->acceptedSync);
    }
    if (hasSubTlvs(summary.subTlvs)) {
        json["subtlv"] = subTlvJson(*summary.subTlvs);
    }
    return json.dump();
}

long residentKib() {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/status", "re"),
                                                     std::fclose);
    constexpr char kField[] = "VmRSS:";
    char line[256];
    while (file && std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strncmp(line, kField, sizeof kField - 1) == 0) {
            return std::strtol(line + sizeof kField - 1, nullptr, 10);
        }
    }
    return 0;
}

}  // namespace tsyn
