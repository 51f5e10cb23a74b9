#include "tools/tsyn/doctor/Settle.h"

#include <algorithm>

#include "tools/tsyn/check/PtpFields.h"
#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

bool tookSync(const RecordFacts& record) {
    return record.before && record.after &&
           record.after->acceptedSync != record.before->acceptedSync;
}

/** Frames that have the daemon's domain and VLAN for certain: what it sends of its own accord, or
 *  else the Sync that it takes. */
Frames telling(const Evidence& evidence) {
    Frames frames = ofType(evidence, ptp::kSync, true);
    const Frames requests = ofType(evidence, ptp::kPdelayReq, true);
    frames.insert(frames.end(), requests.begin(), requests.end());
    return frames.empty() && tookSync(evidence.record) ? ofType(evidence, ptp::kSync, false)
                                                       : frames;
}

/** What all of them have; nothing when they differ. */
template <typename Read>
auto common(const Frames& frames, Read read) {
    const bool isOne =
        !frames.empty() && std::all_of(frames.begin(), frames.end(), [&](auto* each) {
            return read(*each) == read(*frames.front());
        });
    return isOne ? std::optional(read(*frames.front())) : std::nullopt;
}

std::optional<bool> isMaster(const Evidence& evidence) {
    if (!ofType(evidence, ptp::kSync, true).empty()) {
        return true;
    }
    const std::optional<gPtpTimeDataStruct>& record = evidence.record.after;
    if (record && record->systemTime != 0) {
        return true;
    }
    const bool takes = record && (record->acceptedSync != 0 || record->rejectedSync != 0);
    const bool asks = !ofType(evidence, ptp::kPdelayReq, true).empty();
    return takes || asks ? std::optional(false) : std::nullopt;
}

template <typename Value>
void complete(std::optional<Value>& known, const std::optional<Value>& seen) {
    known = known ? known : seen;
}

}  // namespace

void settle(Evidence& evidence) {
    Settings& used = evidence.used;
    if (daemonLives(evidence)) {
        const Frames frames = telling(evidence);
        complete(used.master, isMaster(evidence));
        complete(used.domain, common(frames, [](const Heard& frame) {
                     return static_cast<unsigned int>(frame.message[ptp::kDomainNumberAt]);
                 }));
        complete(used.vlanId, common(frames, [](const Heard& frame) { return frame.vlanId; }));
    }
    const Settings& asked = evidence.asked;
    Expectation& expected = evidence.expected;
    const auto take = [](auto& value, const auto& first, const auto& second) {
        value = first ? *first : second.value_or(value);
    };
    // A daemon that has ended left a record of its role.
    take(expected.master, asked.master, used.master ? used.master : isMaster(evidence));
    take(expected.domain, asked.domain, used.domain);
    take(expected.vlanId, asked.vlanId, used.vlanId);
    take(expected.anyMinorVersion, asked.anyMinorVersion, used.anyMinorVersion);
    take(expected.syncIntervalMs, asked.syncIntervalMs, used.syncIntervalMs);
    expected.dataIds = asked.dataIds ? asked.dataIds : used.dataIds;
}

}  // namespace tsyn::doctor
