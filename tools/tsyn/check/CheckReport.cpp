#include "tools/tsyn/check/CheckReport.h"

#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <numeric>

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

std::string timeText(std::uint64_t timeNs) {
    constexpr std::uint64_t kNsPerSecond = 1000000000;
    char text[48];
    std::snprintf(text, sizeof text, "%" PRIu64 ".%09" PRIu64, timeNs / kNsPerSecond,
                  timeNs % kNsPerSecond);
    return text;
}

unsigned long wrongCrcs(const CheckResult& result) {
    return std::accumulate(result.wrong.begin(), result.wrong.end(), 0UL);
}

unsigned long rightCrcs(const CheckResult& result) {
    return std::accumulate(result.right.begin(), result.right.end(), 0UL);
}

/** Fewer may each be wrong for themselves. */
bool isFolded(const CheckResult& result) {
    constexpr unsigned long kFoldFrom = 8;
    return rightCrcs(result) == 0 && wrongCrcs(result) >= kFoldFrom;
}

std::string frameCounts(const CheckResult& result) {
    std::string text;
    for (unsigned int type = 0; type < kMessageTypeCount; ++type) {
        if (result.byType[type] != 0) {
            text += "  " + messageTypeName(type) + " " + std::to_string(result.byType[type]);
        }
    }
    if (result.notPtp != 0) {
        text += "  not PTP " + std::to_string(result.notPtp);
    }
    return text + "  (" + std::to_string(result.vlanTagged) + " with VLAN tag)";
}

std::string crcCounts(const CheckResult& result) {
    std::string text;
    for (std::size_t field = 0; field < kCrcFieldCount; ++field) {
        const unsigned long all = result.right[field] + result.wrong[field];
        if (all != 0) {
            text += std::string("  ") + crcFieldName(static_cast<CrcField>(field)) + " " +
                    std::to_string(result.right[field]) + "/" + std::to_string(all);
        }
    }
    return text;
}

Json crcJson(const CheckResult& result) {
    Json json = Json::object();
    for (std::size_t field = 0; field < kCrcFieldCount; ++field) {
        json[crcFieldName(static_cast<CrcField>(field))] = {{"right", result.right[field]},
                                                            {"wrong", result.wrong[field]}};
    }
    return json;
}

Json findingJson(const Finding& finding) {
    const bool isFrame = finding.frame != 0;
    return {{"frame", isFrame ? Json(finding.frame) : Json(nullptr)},
            {"time", isFrame ? Json(timeText(finding.timeNs)) : Json(nullptr)},
            {"source", finding.source.empty() ? Json(nullptr) : Json(finding.source)},
            {"sequence_id", finding.sequenceId ? Json(*finding.sequenceId) : Json(nullptr)},
            {"kind", defectKindName(finding.defect.kind)},
            {"part", finding.defect.part},
            {"field", finding.defect.field},
            {"text", finding.defect.text}};
}

}  // namespace

std::string findingLine(const Finding& finding) {
    if (finding.frame == 0) {
        return finding.defect.part + ": " + finding.defect.field + " " + finding.defect.text;
    }
    std::string line = "frame " + std::to_string(finding.frame) + "  " + timeText(finding.timeNs);
    if (!finding.source.empty()) {
        line += "  " + finding.source;
    }
    if (finding.sequenceId) {
        line += "  seq " + std::to_string(*finding.sequenceId);
    }
    return line + "  " + finding.defect.part + ": " + finding.defect.field + " " +
           finding.defect.text;
}

std::vector<std::string> findingLines(const CheckResult& result) {
    std::vector<std::string> lines;
    const bool folded = isFolded(result);
    if (folded) {
        lines.push_back("all " + std::to_string(wrongCrcs(result)) +
                        " CRCs are wrong: is --data-id-list missing, or that of another sender?");
    }
    for (const Finding& finding : result.findings) {
        if (!folded || finding.defect.kind != DefectKind::kCrc) {
            lines.push_back(findingLine(finding));
        }
    }
    return lines;
}

std::string checkSummary(const std::string& file, const CheckResult& result) {
    std::string text =
        file + ": " + std::to_string(result.frames) + " frames" + frameCounts(result) + "\n";
    if (result.autosarFollowUps != 0) {
        text += "AUTOSAR TLV in " + std::to_string(result.autosarFollowUps) +
                " Follow_Up; right CRCs:" + crcCounts(result) + "\n";
    } else {
        text += "no AUTOSAR TLV\n";
    }
    const bool noneRight = crcCounts(result).find(" 0/") != std::string::npos;
    text += result.findings.empty() ? std::string("no findings")
                                    : std::to_string(result.findings.size()) + " findings";
    if (wrongCrcs(result) != 0 && noneRight && !isFolded(result)) {
        text += "; a CRC that is never right hints at another --data-id-list";
    }
    return text;
}

std::string checkJson(const std::string& file, const CheckResult& result) {
    Json types = Json::object();
    for (unsigned int type = 0; type < kMessageTypeCount; ++type) {
        if (result.byType[type] != 0) {
            types[messageTypeName(type)] = result.byType[type];
        }
    }
    Json findings = Json::array();
    for (const Finding& finding : result.findings) {
        findings.push_back(findingJson(finding));
    }
    const Json json = {{"file", file},
                       {"frames", result.frames},
                       {"messages", types},
                       {"not_ptp", result.notPtp},
                       {"vlan_tagged", result.vlanTagged},
                       {"autosar_follow_ups", result.autosarFollowUps},
                       {"crc", crcJson(result)},
                       {"findings", findings}};
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tsyn
