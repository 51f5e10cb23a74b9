#pragma once

#include <optional>

#include "include/gPtpTimeData.h"

namespace tsyn {

/** Notices that a slave takes Sync from two senders: more of them than the sequence ids advance.
 *  One sender that starts anew, or a single repeat, is no second one. */
class SenderWatch {
public:
    explicit SenderWatch(double syncIntervalMs);

    /** Takes a fresh copy of the record at a time in seconds since the start. */
    void update(const gPtpTimeDataStruct& record, double nowS);

    bool seesTwo() const;

private:
    struct Counters {
        double sinceS;
        unsigned int accepted;
        unsigned int sequenceId;
    };
    double windowS_;
    std::optional<Counters> window_;
    unsigned int crowded_ = 0; /**< a bit for each window, the latest in bit 0 */
};

}  // namespace tsyn
