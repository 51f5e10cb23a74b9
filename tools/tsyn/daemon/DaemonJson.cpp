#include "tools/tsyn/daemon/DaemonJson.h"

#include <nlohmann/json.hpp>

#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonTime.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

constexpr long long kSecondNs = 1000000000;

template <typename Value>
Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json isoOrNull(const std::optional<long long>& timeNs) {
    return timeNs ? Json(isoText(*timeNs)) : Json(nullptr);
}

/** The time now, or that of the last Sync where the daemon's system clock is another one. */
void addTime(Json& json, const DaemonState& daemon, int utcOffsetS) {
    const Look& look = daemon.latest();
    json["seconds"] = nullptr;
    json["nanoseconds"] = nullptr;
    json["timescale"] = nullptr;
    json["utc"] = nullptr;
    json["tai"] = nullptr;
    const std::optional<long long> timeNs = shownTimeNs(daemon);
    if (!timeNs) {
        return;
    }
    const Timescale timescale = timescaleOf(*timeNs, look.systemNs, utcOffsetS);
    const CivilTime civil = civilTime(*timeNs, timescale, utcOffsetS);
    json["seconds"] = *timeNs / kSecondNs;
    json["nanoseconds"] = *timeNs % kSecondNs;
    json["timescale"] = timescaleName(timescale);
    json["utc"] = isoOrNull(civil.utcNs);
    json["tai"] = isoOrNull(civil.taiNs);
}

Json ownerJson(const Owner& owner) {
    const bool isKnown = owner.life != Owner::Life::kUnknown;
    return {{"pid", owner.pid == 0 ? Json(nullptr) : Json(owner.pid)},
            {"alive", isKnown ? Json(owner.life == Owner::Life::kLives) : Json(nullptr)},
            {"command", owner.command.empty() ? Json(nullptr) : Json(owner.command)}};
}

Json qualityOrNull(const DaemonState& daemon) {
    const Look& look = daemon.latest();
    if (!look.quality) {
        return nullptr;
    }
    const gPtpTimeQuality& quality = *look.quality;
    Json json = qualityJson(quality, look.record, look.systemNs);
    json["state"] =
        roleOf(look) == DaemonRole::kMaster ? timeStateName(quality.state) : daemon.state();
    json["bound_ns"] = orNull(daemon.boundNs());
    json["bound_growth_ppb"] = static_cast<unsigned int>(quality.boundGrowthPpb);
    json["void_after_ns"] = static_cast<long long>(quality.voidAfterNs);
    return json;
}

}  // namespace

Json daemonJson(const std::string& source, const DaemonState& daemon, const Owner& owner,
                int utcOffsetS) {
    const Look& look = daemon.latest();
    const gPtpTimeDataStruct& record = look.record;
    Json json = {{"event", "status"},
                 {"interface", source},
                 {"role", roleName(roleOf(look))},
                 {"profile", profileName(look)},
                 {"state", daemon.state()}};
    addTime(json, daemon, utcOffsetS);
    // Converted first: no reference may be bound to a member of the packed record.
    json["sequence_id"] = static_cast<unsigned int>(record.sequenceId);
    json["offset_ns"] = static_cast<long long>(record.masterOffset);
    json["rate_ppm"] = orNull(ratePpm(record));
    json["link_delay_ns"] = static_cast<long long>(record.linkDelay);
    json["soft_offset_ns"] = static_cast<long long>(record.softOffset);
    json["sync_age_s"] = orNull(daemon.syncAgeS());
    for (const Counter& counter : recordCountersOf(look)) {
        json[counter.key] = counter.value;
    }
    json["quality"] = qualityOrNull(daemon);
    json["subtlv"] = nullptr;
    json["owner"] = ownerJson(owner);
    return json;
}

}  // namespace tsyn
