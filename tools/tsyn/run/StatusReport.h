#pragma once

#include <optional>
#include <string>

#include "include/gPtpTimeData.h"
#include "tools/tsyn/run/SubTlvTracker.h"
#include "tools/tsyn/run/SyncTracker.h"

namespace tsyn {

/** What a host sees of its daemon at one moment. */
struct Status {
    double elapsedS = 0.0;
    bool master = false;
    SyncState state = SyncState::kStarting; /**< as the host sees it, without the quality */
    bool hasTime = false; /**< seconds and nanoseconds hold the time that the daemon gives */
    unsigned long long seconds = 0;
    unsigned int nanoseconds = 0;
    std::optional<gPtpTimeDataStruct> record;
    long long systemNs = 0; /**< at which the quality is told */
    bool twoSenders = false;
    const SubTlvTracker* subTlvs = nullptr;
    std::optional<long long> truthErrorNs; /**< of the latest comparison with a virtual i210 */
};

/** What a whole run came to. */
struct RunSummary {
    double durationS = 0.0;
    bool master = false;
    SyncState state = SyncState::kStarting; /**< as of a Status */
    std::optional<double> firstSyncS;
    std::optional<double> firstValidS;
    unsigned long samples = 0;
    std::optional<gPtpTimeDataStruct> record;
    long long systemNs = 0; /**< at which the record's quality is told */
    const SubTlvTracker* subTlvs = nullptr;
};

std::string statusLine(const Status& status);
std::string statusJson(const std::string& interfaceName, const Status& status);
std::string summaryLine(const RunSummary& summary);
std::string summaryJson(const std::string& interfaceName, const RunSummary& summary);

/** Resident memory of this process in KiB, 0 when /proc is not there. */
long residentKib();

}  // namespace tsyn
