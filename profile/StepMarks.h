#pragma once

/** What the Follow_Ups of a master tell of the steps that its time has made. A host steps the time
 *  at any moment, also between a Sync and its Follow_Up: a step is told by the first Follow_Up
 * whose own time has made it. One caller at a time. */
class StepMarks {
public:
    struct Told {
        unsigned short count = 0;
        long long lastNs = 0;
    };

    /** A Sync leaves now. */
    void noteSync(unsigned long long monotonicNs) { syncNs_ = monotonicNs; }

    /** The time is about to be stepped by this. */
    void noteStep(long long ns);

    /** What the Follow_Up of the last Sync tells, whose time is this. */
    Told ofFollowUp(unsigned long long timeNs);

private:
    bool hasMade(long long timeOverMonotonicNs) const;

    Told told_;
    Told pending_;  ///< how many steps, and the last one
    long long pendingSumNs_ = 0;
    int followUpsSince_ = 0;  ///< the oldest pending step
    bool hasEarlier_ = false;
    long long earlierNs_ = 0;  ///< time over the monotonic clock, of the Follow_Up before
    unsigned long long syncNs_ = 0;
};
