#include "tools/tsyn/doctor/RecordEvidence.h"

#include <unistd.h>

#include <cstdlib>

#include "tools/tsyn/daemon/Owner.h"
#include "tools/tsyn/doctor/TextFile.h"

namespace tsyn::doctor {
namespace {

std::optional<gPtpTimeDataStruct> recordOf(const std::optional<Look>& look) {
    return look ? std::optional(look->record) : std::nullopt;
}

}  // namespace

RecordWitness::RecordWitness(const std::string& interfaceName, RecordFacts& facts)
    : facts_(facts), source_(interfaceName) {}

void RecordWitness::noteBefore() {
    facts_.exists = access(source_.segmentFile().c_str(), F_OK) == 0;
    facts_.before = recordOf(read());
    beforeS_ = monotonicNowS();
}

void RecordWitness::noteAfter() {
    facts_.after = recordOf(read());
    facts_.afterNs = systemNowNs();
    facts_.apartS = monotonicNowS() - beforeS_;
    noteOwner();
}

std::optional<Look> RecordWitness::read() {
    if (!facts_.exists || !facts_.problem.empty()) {
        return {};
    }
    const std::optional<Look> look = source_.look(0.0);
    if (!look) {
        facts_.problem = source_.problem();
        return {};
    }
    last_ = *look;
    return look;
}

/** One that is hidden from this user may live. */
void RecordWitness::noteOwner() {
    if (!facts_.exists) {
        return;
    }
    const Owner owner = OwnerFinder().find(last_, source_.segmentFile());
    facts_.ownerPid = owner.pid;
    facts_.ownerLives = owner.life != Owner::Life::kEnded;
    facts_.ownerIsHidden = owner.life == Owner::Life::kUnknown;
    if (facts_.ownerPid == 0) {
        const std::string pid = textOf(source_.segmentFile() + ".lock");
        facts_.ownerPid = static_cast<int>(std::strtol(pid.c_str(), nullptr, 10));
    }
}

}  // namespace tsyn::doctor
