#pragma once

#include <optional>

#include "include/gPtpTimeData.h"

namespace tsyn {

enum class SyncState {
    kStarting,     /**< the daemon does not run yet */
    kNoSync,       /**< slave: no Sync accepted yet */
    kPriming,      /**< slave: Sync arrives, but no real rate ratio is published yet */
    kSynchronised, /**< slave: the last pair gave a rate ratio and an offset */
    kRefused,      /**< slave: the last pair's rate ratio was out of range */
    kStale,        /**< no new pair (slave) or Sync (master) for more than three intervals */
    kSending,      /**< master: Sync is being sent */
    kSilent,       /**< master: nothing sent yet */
    kGone,         /**< the interface was deleted */
};

const char* stateName(SyncState state);

/** Follows the published record of one daemon and tells its state. A record that is looked at
 *  less often than once a Sync interval only delays the verdict.
 *
 *  A slave's first Sync and Follow_Up prime its history, the second pair divides absolute times
 *  and only the third gives a real rate ratio: time is valid from the third pair on, which is the
 *  second one that moves the record's localTime. */
class SyncTracker {
public:
    SyncTracker(bool master, double syncIntervalMs);

    /** Takes a fresh copy of the record at a time in seconds since the start. */
    void update(const gPtpTimeDataStruct& record, double nowS);

    SyncState state(double nowS) const;

    /** When a Sync first showed in the record, seconds since the start. */
    std::optional<double> firstSyncS() const { return firstSyncS_; }
    /** When the slave first was synchronised, seconds since the start. */
    std::optional<double> firstValidS() const { return firstValidS_; }

private:
    SyncState slaveState(bool stale) const;

    bool master_;
    double staleAfterS_;
    bool seen_ = false;
    gPtpTimeDataStruct record_{};
    unsigned int evaluatedPairs_ = 0;
    double lastProgressS_ = 0.0;
    std::optional<double> firstSyncS_;
    std::optional<double> firstValidS_;
};

}  // namespace tsyn
