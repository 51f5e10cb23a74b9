#include "tools/tsyn/doctor/RecordEvidence.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/doctor/ProcessScan.h"
#include "tools/tsyn/doctor/TextFile.h"

namespace tsyn::doctor {
namespace {

long long systemNs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

/** Another process may have the number of one that has ended, so its record counts. */
bool livesWithRecord(int pid, const std::string& interfaceName) {
    const bool exists = kill(pid, 0) == 0 || errno == EPERM;
    return exists && writesRecord(pid, interfaceName).value_or(true);
}

}  // namespace

RecordWitness::RecordWitness(const std::string& interfaceName, RecordFacts& facts)
    : name_(interfaceName), facts_(facts) {}

void RecordWitness::noteBefore() {
    const std::string path = "/dev/shm/" + name_;
    facts_.exists = access(path.c_str(), F_OK) == 0;
    if (facts_.exists && access(path.c_str(), R_OK) != 0) {
        facts_.problem = path + ": " + std::strerror(errno);
    }
    facts_.before = read();
}

void RecordWitness::noteAfter() {
    facts_.after = read();
    facts_.afterNs = systemNs();
    noteOwner();
}

std::optional<gPtpTimeDataStruct> RecordWitness::read() {
    if (!facts_.exists || !facts_.problem.empty()) {
        return {};
    }
    if (!view_.open(name_)) {
        facts_.problem = "/dev/shm/" + name_ + " is no record, or one that is only being made";
        return {};
    }
    const auto record = view_.snapshot();
    if (!record) {
        facts_.problem = "it changes all the time";
    }
    return record;
}

void RecordWitness::noteOwner() {
    if (facts_.after) {
        const auto quality = qualityOf(*facts_.after);
        facts_.ownerPid = quality ? static_cast<int>(quality->ownerPid) : 0;
    }
    if (facts_.ownerPid == 0) {
        facts_.ownerPid = std::atoi(textOf("/dev/shm/" + name_ + ".lock").c_str());
    }
    facts_.ownerLives = facts_.ownerPid > 0 && livesWithRecord(facts_.ownerPid, name_);
}

}  // namespace tsyn::doctor
