#include "tools/tsyn/daemon/QualityReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

bool isKnown(const gPtpTimeQuality& quality) {
    return quality.state == TSYN_STATE_SYNCHRONISED || quality.state == TSYN_STATE_HOLDOVER;
}

bool hasBound(const gPtpTimeQuality& quality, long long nowNs) {
    return isKnown(quality) && nowNs <= quality.voidAfterNs;
}

}  // namespace

const char* timeStateName(unsigned char state) {
    switch (state) {
    case TSYN_STATE_NO_MASTER:
        return "no master";
    case TSYN_STATE_ACQUIRING:
        return "acquiring";
    case TSYN_STATE_SYNCHRONISED:
        return "synchronised";
    case TSYN_STATE_HOLDOVER:
        return "holdover";
    case TSYN_STATE_LOST:
        return "lost";
    default:
        return "unknown";
    }
}

std::vector<std::string> flagNames(unsigned char flags) {
    constexpr struct {
        unsigned char bit;
        const char* name;
    } kNames[] = {{TSYN_FLAG_SEVERAL_ANSWERS, "several-answers"},
                  {TSYN_FLAG_OTHER_MASTERS, "other-masters"},
                  {TSYN_FLAG_BETTER_MASTER, "better-master"},
                  {TSYN_FLAG_LINK_DOWN, "link-down"}};
    std::vector<std::string> names;
    for (const auto& each : kNames) {
        if ((flags & each.bit) != 0) {
            names.emplace_back(each.name);
        }
    }
    return names;
}

std::string identityText(const gPtpTimeQuality& quality) {
    std::string text;
    for (const unsigned char byte : quality.masterIdentity) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

/** It grows from the anchor on, into the past as well. */
std::optional<long long> boundAt(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                                 long long nowNs) {
    if (!hasBound(quality, nowNs)) {
        return {};
    }
    const auto localNs = static_cast<long long>(record.localTime);
    const auto ageNs = static_cast<double>(nowNs - (localNs + record.systemOffset));
    const double growth = 1e-9 * quality.boundGrowthPpb * std::fabs(ageNs);
    return quality.boundNs + static_cast<long long>(growth);
}

std::optional<gPtpTimeQuality> qualityOf(const gPtpTimeDataStruct& record) {
    gPtpTimeQuality quality{};
    std::memcpy(&quality, reinterpret_cast<const unsigned char*>(&record) + kTimeQualityOffset,
                sizeof quality);
    if (quality.magic != kTimeQualityMagic || quality.layout != kTimeQualityLayout) {
        return {};
    }
    return quality;
}

const char* timeStateAt(const gPtpTimeQuality& quality, long long nowNs) {
    const bool isVoid = isKnown(quality) && nowNs > quality.voidAfterNs;
    return timeStateName(isVoid ? static_cast<unsigned char>(TSYN_STATE_LOST) : quality.state);
}

std::string masterText(const gPtpTimeQuality& quality, bool isMaster) {
    if (isMaster) {
        return "itself";
    }
    const bool isNobody =
        std::all_of(std::begin(quality.masterIdentity), std::end(quality.masterIdentity),
                    [](unsigned char byte) { return byte == 0; });
    return isNobody ? "none" : identityText(quality) + "-" + std::to_string(quality.masterPort);
}

std::string qualityText(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                        long long nowNs, bool isMaster) {
    std::string text = "  master " + masterText(quality, isMaster) + "  bound ";
    const std::optional<long long> boundNs = boundAt(quality, record, nowNs);
    text += boundNs ? std::to_string(*boundNs) + " ns" : std::string("-");
    for (const std::string& name : flagNames(quality.flags)) {
        text += "  " + name;
    }
    return text;
}

Json qualityJson(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                 long long nowNs) {
    const std::optional<long long> boundNs = boundAt(quality, record, nowNs);
    return {{"state", timeStateAt(quality, nowNs)},
            {"master", identityText(quality)},
            {"master_port", static_cast<unsigned int>(quality.masterPort)},
            {"bound_ns", boundNs ? Json(*boundNs) : Json(nullptr)},
            {"flags", flagNames(quality.flags)},
            {"steps", static_cast<unsigned int>(quality.stepCount)},
            {"ignored_frames", static_cast<unsigned int>(quality.ignoredFrames)},
            {"unstamped_frames", static_cast<unsigned int>(quality.unstampedFrames)},
            {"stray_stamps", static_cast<unsigned int>(quality.strayStamps)},
            {"unused_exchanges", static_cast<unsigned int>(quality.unusedExchanges)},
            {"refused_samples", static_cast<unsigned int>(quality.refusedSamples)}};
}

}  // namespace tsyn
