#pragma once

#include "include/gPtpTimeData.h"
#include "include/gPtpTimeQuality.h"

/** A cross-timestamp of system clock and PHC, ns. */
struct LocalClock {
    long long systemNs;
    long long phcNs;
    long long systemOffset;  ///< system minus PHC time
    long double rate;        ///< PHC over system clock since the previous cross-timestamp
};

/** What a slave learns from one Sync and its Follow_Up; times in ns. */
struct SyncSample {
    unsigned int sequenceId;
    unsigned long long originNs;  ///< preciseOriginTimestamp
    long long correction;         ///< correction field and link delay
    unsigned long long masterNs;  ///< master time when the Sync arrived
    unsigned long long localNs;   ///< PHC time when the Sync arrived
    long double rate;             ///< master over PHC since the previous pair
    long long offset;             ///< local minus master
};

/** A line of time that is published as a whole, see timebase/TimeConversion.h. */
struct TimeLine {
    unsigned long long localTime;  ///< its anchor, PHC time
    long long masterOffset;        ///< PHC minus grandmaster time there
    long long systemOffset;        ///< system minus PHC time there
    long double masterRate;        ///< grandmaster over PHC
    long double phcRate;           ///< PHC over system clock
};

void storeLine(gPtpTimeDataStruct& record, const TimeLine& line);

/** Readings that are published along with a line, for whoever looks into the record. */
struct LineSource {
    unsigned long long originTime;
    unsigned long long systemTime;  ///< 0: left as it is
};

/** What a completed peer-delay exchange tells about the time base. */
struct PdelaySample {
    double fitSlope;
    long long fitEstimate;       ///< ns
    unsigned long long phcT3Ns;  ///< responseOriginTimestamp
};

/** The published record: the one place that stores into it. Stores of one kind are made together
 *  and after every clock reading, since a host may read between any two of them. Where the segment
 *  could not be had, stores go nowhere and readings are 0. Written by the daemon's threads and the
 *  control functions without a lock. */
class TimeRecord {
public:
    explicit TimeRecord(gPtpTimeDataStruct* published) : published_(published) {}

    /** The record for readers, or null. */
    const gPtpTimeDataStruct* published() const { return published_; }

    long long linkDelay() const;
    long long softOffset() const;

    /** Master over PHC rate of the last Sync in range, 0 before one. */
    long double masterRate() const;

    /* A slave. */
    void countAcceptedSync(unsigned int sequenceId);
    void countRejectedSync();

    /** The sample's offset and rate count only while the rate is in range; its instant and the
     *  local clock are published all the same. */
    void publishSlaveSample(const SyncSample& sample, bool rateInRange, const LocalClock& local);

    /* A master. */
    void noteSentSync(unsigned int sequenceId);

    /** rate: that of the regression line; phcNs: the PHC after the Follow_Up. */
    void publishMasterTime(long double rate, long long phcNs, const LocalClock& local);

    /** All of a time and what is said of it, so that readers know by the sequence in the quality
     *  whether theirs belongs together. Any thread; the sequence is counted here. */
    void publishLine(const TimeLine& line, const LineSource& source, gPtpTimeQuality quality);

    /** As publishLine while there is no time yet, or its line stays. */
    void publishQuality(gPtpTimeQuality quality);

    /* Peer delay. */
    void publishLinkDelay(int delayNs);
    void publishTimeBase(const PdelaySample& sample, const LocalClock& local);
    void countIncompletePdelay();

    /* The host. A fixed delay of 0 means a measured one, which stays. */
    void useFixedDelay(int delayNs);
    void setSoftOffset(long long offsetNs);

private:
    gPtpTimeDataStruct* published_;
};
