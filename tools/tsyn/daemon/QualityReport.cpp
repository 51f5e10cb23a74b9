#include "tools/tsyn/daemon/QualityReport.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

bool hasBound(const gPtpTimeQuality& quality, long long nowNs) {
    const bool isKnown =
        quality.state == TSYN_STATE_SYNCHRONISED || quality.state == TSYN_STATE_HOLDOVER;
    return isKnown && nowNs <= quality.voidAfterNs;
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

/** It grows from the anchor on. */
std::optional<long long> boundAt(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                                 long long nowNs) {
    if (!hasBound(quality, nowNs)) {
        return {};
    }
    const auto localNs = static_cast<long long>(record.localTime);
    const long long ageNs = std::max(0LL, nowNs - (localNs + record.systemOffset));
    const double growth = 1e-9 * quality.boundGrowthPpb * static_cast<double>(ageNs);
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

std::string qualityText(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                        long long nowNs) {
    std::string text = std::string("  quality ") + timeStateName(quality.state) + "  master " +
                       identityText(quality) + "-" + std::to_string(quality.masterPort) +
                       "  bound ";
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
    return {{"state", timeStateName(quality.state)},
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
