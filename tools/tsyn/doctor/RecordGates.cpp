#include "tools/tsyn/doctor/RecordGates.h"

#include <algorithm>

#include "base/Extended80.h"
#include "tools/tsyn/check/PtpFields.h"
#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/doctor/Numbers.h"
#include "tools/tsyn/doctor/Rise.h"
#include "tools/tsyn/doctor/Silence.h"
#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

bool pairWasTaken(const gPtpTimeDataStruct& record) {
    constexpr unsigned long long kConsistentNs = 1000000;
    const unsigned long long masterNs =
        record.localTime - static_cast<unsigned long long>(record.masterOffset);
    const unsigned long long difference = masterNs - record.originTime;
    return std::min(difference, 0 - difference) <= kConsistentNs;
}

std::string ageText(const Evidence& evidence) {
    const gPtpTimeDataStruct& record = *evidence.record.after;
    const auto localNs = static_cast<long long>(record.localTime);
    const long long ageNs = evidence.record.afterNs - localNs - record.systemOffset;
    return localNs == 0 ? "no time yet"
                        : "time " + decimal(static_cast<double>(ageNs) * 1e-9, 1) + " s old";
}

Verdict judgeMasterRecord(const Evidence& evidence) {
    const unsigned int sent =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.sequenceId; }) & 0xFFFF;
    const std::string found =
        std::to_string(sent) + " Sync published in " + decimal(evidence.record.apartS, 1) + " s";
    if (sent != 0) {
        return passed(found);
    }
    const Verdict silence = silentMaster(evidence);
    return ofType(evidence, ptp::kSync, true).empty()
               ? failed(found + "; " + silence.found, silence.next)
               : failed(found + ", although it sends them",
                        "its record is another one: see its log, and start it anew");
}

/** As a status line has it, with commas. */
std::string qualityList(const gPtpTimeQuality& quality, const gPtpTimeDataStruct& record,
                        long long nowNs) {
    std::string text = std::string("  ") + timeStateName(quality.state) +
                       qualityText(quality, record, nowNs, false);
    for (std::size_t at = text.find("  "); at != std::string::npos; at = text.find("  ", at)) {
        text.replace(at, 2, ", ");
    }
    return text;
}

Verdict judgeState(const gPtpTimeQuality& quality, const std::string& found) {
    switch (quality.state) {
    case TSYN_STATE_SYNCHRONISED:
        return passed(found);
    case TSYN_STATE_ACQUIRING:
        return failed(found,
                      "wait some seconds; when it stays so, the time of the master or the "
                      "delay moves: see the daemon's log");
    default:
        return failed(found,
                      "see the daemon's log for why it does not believe the Sync that comes");
    }
}

}  // namespace

Verdict judgeRecord(const Evidence& evidence) {
    if (evidence.expected.master) {
        return judgeMasterRecord(evidence);
    }
    const auto accepted =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.acceptedSync; });
    const auto rejected =
        rise(evidence, [](const gPtpTimeDataStruct& record) { return record.rejectedSync; });
    const gPtpTimeDataStruct& record = *evidence.record.after;
    std::string found = std::to_string(accepted) + " Sync taken, " + std::to_string(rejected) +
                        " rejected, " + ageText(evidence);
    if (accepted == 0) {
        return rejected == 0 ? idleSlave(evidence, found)
                             : failed(found, "see in the daemon's log why it rejects them");
    }
    if (const auto quality = qualityOf(record)) {
        return judgeState(*quality, found + qualityList(*quality, record, evidence.record.afterNs));
    }
    const double rate = static_cast<double>(loadExtended(record.rateRatio1));
    if (!pairWasTaken(record) || rate < kSlowestMasterRate || rate > kFastestMasterRate) {
        return failed(found + ", the last pair was refused for its rate",
                      "wait some seconds when the daemon or the master has just begun; otherwise "
                      "see 'frequency offset out of range' in its log");
    }
    return passed(found + ", rate " + decimal(1e6 * (rate - 1.0), 1) + " ppm");
}

}  // namespace tsyn::doctor
