/** Behaviour beyond that of deployed nodes, chosen switch by switch. Compiles as C99 and as C++.
 *
 *  A host that sets no profile runs as deployed nodes do, byte for byte. Before Start it may take a
 *  preset, change what it wants and set it; set before Create, it governs the log of Create, too:
 *
 *      TSynProfile profile;
 *      ZebEthTSynInterface_GetProfilePreset(TSYN_PRESET_STANDARD, &profile);
 *      ZebEthTSynInterface_SetProfile(&profile);
 *
 *  Each switch stands for itself; 0 is the deployed behaviour. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum TSynPreset { TSYN_PRESET_DEPLOYED = 0, TSYN_PRESET_STANDARD = 1 };

/** Values of the switch timescale. */
enum TSynTimescale {
    TSYN_TIMESCALE_UNTOLD = 0,    /**< system time, marked as PTP time without an offset */
    TSYN_TIMESCALE_ARBITRARY = 1, /**< system time, marked as what it is */
    TSYN_TIMESCALE_TAI = 2        /**< system time plus utcOffset, marked as PTP time */
};

/** Receives each line of the log in place of standard output, without its newline. level: 2 always,
 *  3 info, 4 debug, 7 warning, 8 error. Called from any thread of the daemon and of the host, one
 *  at a time; it must not call the library. */
typedef void (*TSynLogSink)(int level, const char* line, void* context);

/** One byte a switch unless a unit is given: 0 off, 1 on. */
typedef struct TSynProfile {
    unsigned int recordSize; /**< sizeof(TSynProfile) */

    /* The wire. */
    unsigned char anyMinorVersion;       /**< peers of 802.1AS-2020, whose version byte is 0x12 */
    unsigned char onePortNumber;         /**< peers that know a port by its number: always 1 */
    unsigned char standardResponses;     /**< peers that compute a delay with us: responses and
                                              their correction as the standard has them */
    unsigned char configuredLogInterval; /**< peers that time out by logMessageInterval */
    unsigned char timescale;             /**< enum TSynTimescale; peers that follow Announce */
    unsigned char timeChangeMarks;       /**< peers that must learn of a step: gmTimeBaseIndicator
                                              and lastGmPhaseChange */
    unsigned char signedRateOffset; /**< masters whose cumulativeScaledRateOffset is negative */
    unsigned char evenTlvs;         /**< peers that refuse a TLV of odd length: padded */

    /* Whom it believes. */
    unsigned char oneMaster;            /**< two masters on a segment: the other one is counted */
    unsigned char masterIdentity[8];    /**< the one to believe; all 0: the first one heard */
    unsigned char soleAnswer;           /**< bridges that forward gPTP: a delay that several ports
                                             answered is not used */
    unsigned char receiveStampRequired; /**< frames that the card did not stamp: dropped */
    unsigned char answersPerSecond;     /**< request floods: answers to one peer, and 64 to all
                                             beside the first eight; 0: all */
    unsigned short portTableLimit;      /**< identity floods: ports remembered; 0: all */

    /* Time. */
    unsigned char matchedStamps;          /**< late, lost or swapped transmit timestamps */
    unsigned char preciseCrossTimestamps; /**< slow or unsteady buses to the card */
    unsigned char robustTime;             /**< jitter, outliers, silent masters: lines over a
                                               second, states, bounds */
    unsigned char robustDelay;            /**< jitter and outliers of measured delay */

    /* Threads and files. */
    unsigned char eventPumps;        /**< battery and load: one thread, TSyn_Main, sleeps until a
                                          frame, the host or a deadline wakes it; requests carry
                                          no time */
    unsigned char quickStart;        /**< hosts in a hurry: Start returns within 50 ms */
    unsigned char followLink;        /**< unplugged cables, interfaces made anew or late; with
                                          eventPumps */
    unsigned char startAfterDestroy; /**< hosts that start again: Destroy returns when all threads
                                          have ended */
    unsigned char oneDaemon;         /**< Start of a second daemon on the interface returns -1 and
                                          logs the process of the first, which is in
                                          /dev/shm/INTERFACE.lock */
    unsigned char segmentRequired;   /**< hosts that live by the published record: Start returns -1
                                          and logs why when the segment is another user's or
                                          cannot be opened; a later failure is logged once */
    unsigned short segmentMode;      /**< access to the segment, such as 0644; 0: everybody's */

    /* The log. */
    unsigned char logThreshold; /**< lines below this level are left out; 0: none */
    unsigned char reserved1;    /**< 0 */
    unsigned short
        logLinesPerSecond; /**< of one place in the source; how many more there were is
                                told later, and nothing waits for standard output. 0: all */
    TSynLogSink logSink;   /**< null: standard output */
    void* logContext;      /**< handed to logSink */

    short utcOffset;          /**< seconds of TAI over UTC, for TSYN_TIMESCALE_TAI */
    unsigned short reserved2; /**< 0 */
} TSynProfile;

/** Fills in a preset. Returns 0, or -1 for an unknown one or null. Any thread. */
int ZebEthTSynInterface_GetProfilePreset(unsigned int preset, TSynProfile* profile);

/** Sets one member of a record by its name, as a configuration file or command line gives it; not
 *  masterIdentity, logSink and logContext. Returns 0, or -1 when it has no such member or the
 * member cannot hold the value. Any thread. */
int ZebEthTSynInterface_SetProfileSwitch(TSynProfile* profile, const char* name, int value);

/** Tells the switches one after the other: the name of that number, from 0 on, and the highest
 * value that it may have. Returns 0, or -1 when there is none of that number. Any thread. */
int ZebEthTSynInterface_GetProfileSwitch(unsigned int number, const char** name, int* highest);

/** Takes a profile, before Start; before or after Create, which leaves it as it is. Returns 0, or
 * -1 with one log line, which no limit of the log leaves out, when its size is another, a switch
 * has a value that it does not know or needs another switch, or the threads have started. */
int ZebEthTSynInterface_SetProfile(const TSynProfile* profile);

/** Grandmaster time of one moment with what is known of its error. */
typedef struct TSynBoundedTime {
    long long earliestNs;   /**< true time lies between this one, but for cables that are longer in
                                 one direction */
    long long latestNs;     /**< and this one; without a bound, from -2^63 to 2^63 - 1 */
    long long timeNs;       /**< what the daemon takes for it */
    unsigned int state;     /**< enum TSynTimeState */
    unsigned int stepCount; /**< announced steps so far: only they move the time back */
} TSynBoundedTime;

/** The time now. Returns 0, or -1 when the daemon does not run, its profile has no robustTime, it
 *  published nothing yet, or for null; the record is then as it was. Without a time so far timeNs
 * is -2^63. Any thread. */
int ZebEthTSynInterface_GetBoundedTime(TSynBoundedTime* time);

#ifdef __cplusplus
}
#endif
