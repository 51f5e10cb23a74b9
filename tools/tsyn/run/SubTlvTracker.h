#pragma once

#include <array>
#include <optional>

#include "include/ZebEthTimeSynSupportInterface.h"
#include "tools/tsyn/CrcField.h"

namespace tsyn {

/** What the daemon took from the AUTOSAR sub-TLVs of the last Follow_Up. */
struct SubTlvReading {
    TSynSubTlvReport report{};
    TSynUserData userData{};
    unsigned int status = 0;
};

/** Recorded CRCs that the reading has room for. */
unsigned int recordedCrcs(const SubTlvReading& reading);

/** At least one CRC was recorded and all of them matched. */
bool allCrcsValid(const SubTlvReading& reading);

/** The daemon's latest reading; nothing while it does not run. */
std::optional<SubTlvReading> currentSubTlvs();

/** Counts over a whole run what each Follow_Up's sub-TLVs came to. The daemon only tells of the
 *  last one, so it has to be asked at least once between two Sync messages. */
class SubTlvTracker {
public:
    /** acceptedSync: the daemon's counter. A Follow_Up counts one look after its Sync, when it has
     *  been dealt with. */
    void update(unsigned int acceptedSync, const SubTlvReading& reading);

    const std::optional<SubTlvReading>& last() const { return last_; }
    unsigned long followUps() const { return followUps_; }
    unsigned long allValid() const { return allValid_; }
    unsigned long valid(CrcField field) const { return valid_[static_cast<std::size_t>(field)]; }

private:
    void count(const SubTlvReading& reading);

    unsigned int acceptedSync_ = 0;
    bool pending_ = false;
    std::optional<SubTlvReading> last_;
    unsigned long followUps_ = 0;
    unsigned long allValid_ = 0;
    std::array<unsigned long, kCrcFieldCount> valid_{};
};

}  // namespace tsyn
