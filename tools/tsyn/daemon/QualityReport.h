#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "include/gPtpTimeQuality.h"

namespace tsyn {

/** What a record tells of its quality; nothing of a daemon that does not tell. */
std::optional<gPtpTimeQuality> qualityOf(const gPtpTimeDataStruct& record);

const char* timeStateName(unsigned char state);
std::vector<std::string> flagNames(unsigned char flags);

/** Of the believed master, in hexadecimal. */
std::string identityText(const gPtpTimeQuality& quality);

/** The error bound at a system time, ns; nothing when there is none or it is void by then. */
std::optional<long long> boundAt(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                                 long long nowNs);

/** Its state at a system time: a time whose bound is void by then is lost. */
const char* timeStateAt(const gPtpTimeQuality& quality, long long nowNs);

/** Of the daemon's own record: "itself" of a master, "none", or identity and port. */
std::string masterText(const gPtpTimeQuality& quality, bool isMaster);

/** For the end of a status line: all but the state. nowNs: system time, at which the bound is
 *  told. */
std::string qualityText(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                        long long nowNs, bool isMaster);

nlohmann::ordered_json qualityJson(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                                   long long nowNs);

}  // namespace tsyn
