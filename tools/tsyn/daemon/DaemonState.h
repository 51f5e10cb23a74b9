#pragma once

#include <optional>
#include <string>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

enum class DaemonRole { kUnknown, kMaster, kSlave };

/** "master" or "slave"; "unknown" as long as nothing was sent or received. */
const char* roleName(DaemonRole role);

/** A daemon that told its quality, "standard"; one that has a time and told none, "deployed"; else
 *  "unknown". */
const char* profileName(const Look& look);

DaemonRole roleOf(const Look& look);

/** System time at localTime, from which on the record reckons. */
long long anchorNs(const gPtpTimeDataStruct& record);

/** System time of the last Sync that was used (slave) or sent (master), ns; nothing before one. */
std::optional<long long> lastSyncNs(const Look& look);

/** Master over PHC rate less 1 in ppm; nothing while no rate is known. */
std::optional<double> ratePpm(const gPtpTimeDataStruct& record);

/** The daemon's time at a system time, ns; nothing while it has none. */
std::optional<long long> timeAt(const Look& look, long long systemNs);

/** How well a daemon keeps time, for exit codes and colours. */
enum class Verdict {
    kGood,    /**< a slave in step; a master that sends */
    kHolding, /**< the master is silent; the time is still within its bound */
    kBad
};

/** Tells a daemon's state from looks at its record, also of one that does not publish it. */
class DaemonState {
public:
    /** staleAfterS: more than the Sync interval, which no record tells. sharesClock: the daemon's
     *  system clock is that of the looks. */
    DaemonState(bool sharesClock, double staleAfterS)
        : sharesClock_(sharesClock), staleAfterS_(staleAfterS) {}

    void update(const Look& look);

    /** Words as `tsyn run` uses them; before the first look "no sync yet". */
    const char* state() const;
    Verdict verdict() const;

    /** A Sync was sent or used between two looks: the daemon runs for certain. */
    bool isMoving() const { return movedS_ && latest_.monotonicS - *movedS_ <= staleAfterS_; }

    /** It moves, or its last Sync is not long ago. */
    bool isFresh() const;

    /** Of the last Sync; nothing before one. Of a daemon with another clock, since it was seen. */
    std::optional<double> syncAgeS() const;

    /** Error bound at the latest look, ns; at its last Sync for a daemon with another clock. */
    std::optional<long long> boundNs() const;

    const Look& latest() const { return latest_; }
    bool sharesClock() const { return sharesClock_; }

private:
    const char* toldState() const;
    const char* derivedState() const;

    bool sharesClock_;
    double staleAfterS_;
    Look latest_;
    bool hasLook_ = false;
    bool wasSynchronised_ = false;
    std::optional<double> movedS_;
};

/** The daemon's time at its latest look, ns; of one with another system clock, at its last Sync. */
std::optional<long long> shownTimeNs(const DaemonState& daemon);

}  // namespace tsyn
