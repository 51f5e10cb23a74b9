#pragma once

#include "include/gPtpTimeQuality.h"
#include "profile/Estimator.h"
#include "timebase/TimeRecord.h"

/** Makes published time of Sync pairs and cross-timestamps: master time over the PHC, the PHC over
 *  the system clock, each a line, and what may be said of their error. Reads no clock itself; one
 *  caller at a time. */
class TimeKeeper {
public:
    /** A cross-timestamp: x system, y PHC time. False when it fits no line so far: the caller looks
     *  again, and hands the last of readings that agree to followClocks. */
    bool takeClocks(const estimator::Reading& reading);

    /** The PHC was set or runs at another rate. A slave's time goes on as before. */
    void followClocks(const estimator::Reading& reading);

    /** Whether two cross-timestamps tell the same. */
    bool agree(const estimator::Reading& a, const estimator::Reading& b) const;

    /** The system clock was set forward by this. */
    void shiftSystem(long long byNs);

    /** A Sync pair: x PHC, y master time without the link delay. */
    estimator::Verdict takePair(const estimator::Reading& reading);

    /** This node is the master: the time is its PHC and what the host put on top of it, ns. */
    void beMaster(long long aheadNs);

    /** Whether a time can be told at all. */
    bool hasTime() const;

    /** What is known of the way to the master. */
    struct Delay {
        long long ns;
        double doubt;
        bool isKnown;
    };

    /** What readers shall know from now on. */
    struct Publication {
        TimeLine line;
        unsigned char state;
        unsigned int boundNs;
        unsigned int boundGrowthPpb;
        long long voidAfterNs;
        bool isStep;  ///< the time does not go on where it was
    };
    Publication publish(unsigned long long systemNowNs, const Delay& delay);

    /** enum TSynTimeState now. */
    unsigned char state(unsigned long long systemNowNs, const Delay& delay) const;

private:
    struct Target;
    struct Course;
    Target target(unsigned long long systemNowNs, const Delay& delay) const;
    Course course(unsigned long long systemNowNs, const Target& goal) const;
    bool isSilent(unsigned long long systemNowNs) const;
    double interval() const;
    TimeLine lineOf(unsigned long long systemNowNs, const Target& goal, const Course& way) const;
    void begin(TimeLine& line, unsigned long long systemNowNs, unsigned long long timeNs) const;
    void goOn(TimeLine& line, unsigned long long systemNowNs, unsigned long long timeNs) const;
    unsigned int atLeastAsWide(const Publication& told, unsigned long long systemNowNs) const;
    double doubtOf(unsigned long long systemNowNs, const Delay& delay) const;
    double growth(unsigned long long systemNowNs) const;
    void noteInterval(const estimator::Reading& reading);

    estimator::Tracker phcOverSystem_;
    estimator::Tracker masterOverPhc_;
    bool isMaster_ = false;
    long long aheadNs_ = 0;     ///< of the PHC, a master's time
    bool stepFollows_ = false;  ///< the next publication need not continue the last one
    double pendingDoubt_ = 0;   ///< what a reading that was refused would move the time by
    double intervalNs_ = 0;
    unsigned long long lastPairSystemNs_ = 0;
    unsigned long long lastPairPhcNs_ = 0;
    bool hasShown_ = false;
    bool hasNewPair_ = false;  ///< since the last publication
    gPtpTimeDataStruct shown_ = {};
    unsigned int shownBoundNs_ = 0;
    unsigned int shownGrowthPpb_ = 0;
};
