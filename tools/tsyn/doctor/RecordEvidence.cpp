#include "tools/tsyn/doctor/RecordEvidence.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/doctor/ProcessScan.h"
#include "tools/tsyn/doctor/TextFile.h"

namespace tsyn::doctor {
namespace {

/** Another process may have the number of one that has ended, so its record counts. */
bool livesWithRecord(int pid, const std::string& interfaceName) {
    const bool exists = kill(pid, 0) == 0 || errno == EPERM;
    return exists && writesRecord(pid, interfaceName).value_or(true);
}

}  // namespace

RecordWitness::RecordWitness(const std::string& interfaceName, RecordFacts& facts)
    : name_(interfaceName), facts_(facts), source_(interfaceName) {}

void RecordWitness::noteBefore() {
    facts_.exists = access(source_.segmentFile().c_str(), F_OK) == 0;
    facts_.before = read();
}

void RecordWitness::noteAfter() {
    facts_.after = read();
    facts_.afterNs = systemNowNs();
    noteOwner();
}

std::optional<gPtpTimeDataStruct> RecordWitness::read() {
    if (!facts_.exists || !facts_.problem.empty()) {
        return {};
    }
    const std::optional<Look> look = source_.look(0.0);
    if (!look) {
        facts_.problem = source_.problem();
        return {};
    }
    return look->record;
}

void RecordWitness::noteOwner() {
    if (facts_.after) {
        const auto quality = qualityOf(*facts_.after);
        facts_.ownerPid = quality ? static_cast<int>(quality->ownerPid) : 0;
    }
    if (facts_.ownerPid == 0) {
        const std::string pid = textOf(source_.segmentFile() + ".lock");
        facts_.ownerPid = static_cast<int>(std::strtol(pid.c_str(), nullptr, 10));
    }
    facts_.ownerLives = facts_.ownerPid > 0 && livesWithRecord(facts_.ownerPid, name_);
}

}  // namespace tsyn::doctor
