#include "tools/tsyn/run/SubTlvTracker.h"

#include <algorithm>
#include <iterator>

namespace tsyn {

unsigned int recordedCrcs(const SubTlvReading& reading) {
    constexpr auto kRoom = static_cast<unsigned int>(std::size(TSynSubTlvReport{}.valid));
    return std::min(reading.report.count, kRoom);
}

bool allCrcsValid(const SubTlvReading& reading) {
    const unsigned int count = recordedCrcs(reading);
    const unsigned char* const valid = reading.report.valid;
    return count != 0 && std::all_of(valid, valid + count, [](unsigned char v) { return v == 1; });
}

std::optional<SubTlvReading> currentSubTlvs() {
    SubTlvReading reading;
    unsigned long long seconds = 0;
    ZebEthTSynInterface_GetCurrentTime(0, &seconds, nullptr, nullptr, nullptr, nullptr,
                                       &reading.status, &reading.report, &reading.userData);
    // All ones: the daemon is not running.
    if (seconds == ~0ULL) {
        return {};
    }
    return reading;
}

void SubTlvTracker::update(unsigned int acceptedSync, const SubTlvReading& reading) {
    if (acceptedSync != acceptedSync_) {
        // Two Sync messages between two looks: the reading is of the first or the second.
        if (pending_) {
            count(reading);
        }
        acceptedSync_ = acceptedSync;
        pending_ = acceptedSync != 0;
    } else if (pending_) {
        count(reading);
        pending_ = false;
    }
}

void SubTlvTracker::count(const SubTlvReading& reading) {
    if (reading.report.count == 0) {
        return;
    }
    last_ = reading;
    ++followUps_;
    allValid_ += allCrcsValid(reading) ? 1 : 0;
    for (unsigned int i = 0; i < recordedCrcs(reading); ++i) {
        const unsigned int kind = reading.report.crcKinds[i];
        if (reading.report.valid[i] == 1 && kind < valid_.size()) {
            ++valid_[kind];
        }
    }
}

}  // namespace tsyn
