#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "include/gPtpTimeQuality.h"

namespace tsyn {

/** What a record tells of its quality; nothing of a daemon that does not tell. */
std::optional<gPtpTimeQuality> qualityOf(const gPtpTimeDataStruct& record);

/** For the end of a status line. nowNs: system time, at which the bound is told. */
std::string qualityText(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                        long long nowNs);

nlohmann::ordered_json qualityJson(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                                   long long nowNs);

}  // namespace tsyn
