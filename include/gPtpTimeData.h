/** The time record that a daemon publishes, and its two conversions.
 *
 *  The record lies 24 bytes into the 260-byte POSIX shared-memory segment "/" + interface name.
 *  It is written without a lock: a reader may meet two updates at once and should read twice when
 *  that matters. All times are nanoseconds; all members are little-endian and have the same
 *  offsets for 32-bit and 64-bit readers. Compiles as C99 and as C++. */
#pragma once

#ifdef __cplusplus
#include <cstddef>
#else
#include <stddef.h>
#endif

/** Bounds of rateRatio1 in a slave's record: a pair of Sync messages whose ratio lies outside gives
 *  no time. A slave compares these doubles in 80-bit arithmetic, so that a ratio of exactly 1.00025
 *  is inside and one of exactly 0.99975 is not. */
static const double kFastestMasterRate = 1.00025;
static const double kSlowestMasterRate = 0.99975;

/** Size of the whole segment and offset of the record in it, bytes. */
enum { kSharedSegmentSize = 260, kSharedRecordOffset = 24 };

#pragma pack(push, 4)
/** 236 bytes. The 12-byte members hold an x87 80-bit extended value in their first 10 bytes. A
 *  master's masterOffset is 0, or of one that tells its quality, minus the softOffset that its last
 *  Follow_Up had. */
typedef struct gPtpTimeDataStruct {
    long long linkDelay;          /**< measured or configured link delay, ns */
    long long softOffset;         /**< requested time minus PHC time of the soft-time setter, ns */
    unsigned int rejectedSync;    /**< Sync messages rejected by a slave */
    long long masterOffset;       /**< PHC minus grandmaster time at the last Sync, ns; see above */
    long long systemOffset;       /**< system minus PHC time at the last cross-timestamp, ns */
    unsigned char rateRatio1[12]; /**< grandmaster rate over PHC rate */
    unsigned char rateRatio2[12]; /**< PHC rate over system rate */
    unsigned long long localTime; /**< PHC time of the last Sync (slave) or cross-timestamp, ns */
    unsigned long long originTime; /**< slave: preciseOriginTimestamp of the last Follow_Up;
                                        master: PHC time after the last Follow_Up, ns */
    unsigned long long systemTime; /**< master: system time of the last cross-timestamp, ns */
    unsigned int acceptedSync;     /**< Sync messages accepted by a slave */
    unsigned int incompletePdelay; /**< peer-delay exchanges that lacked a timestamp */
    unsigned char unused92[12];
    unsigned int sequenceId;       /**< of the last Sync sent or accepted; high half always 0 */
    long long fitEstimate;         /**< time-base estimate at the last Pdelay_Resp_Follow_Up, ns */
    long long pdelayOffset;        /**< system minus PHC time at that moment, ns */
    unsigned char fitSlope[12];    /**< slope of the time-base fit */
    unsigned char pdelayRatio[12]; /**< PHC rate over system rate at that moment */
    unsigned long long pdelayT3;   /**< responseOriginTimestamp of the last exchange, ns */
    unsigned long long pdelayPhcTime;    /**< PHC time at that moment, ns */
    unsigned long long pdelaySystemTime; /**< system time at that moment, ns */
    unsigned char unused172[64];
} gPtpTimeDataStruct;
#pragma pack(pop)

#ifdef __cplusplus
#define ZEB_RECORD_OFFSET(member, offset) \
    static_assert(offsetof(gPtpTimeDataStruct, member) == (offset), #member)
static_assert(sizeof(gPtpTimeDataStruct) == 236, "the published record is 236 bytes");
ZEB_RECORD_OFFSET(linkDelay, 0);
ZEB_RECORD_OFFSET(softOffset, 8);
ZEB_RECORD_OFFSET(rejectedSync, 16);
ZEB_RECORD_OFFSET(masterOffset, 20);
ZEB_RECORD_OFFSET(systemOffset, 28);
ZEB_RECORD_OFFSET(rateRatio1, 36);
ZEB_RECORD_OFFSET(rateRatio2, 48);
ZEB_RECORD_OFFSET(localTime, 60);
ZEB_RECORD_OFFSET(originTime, 68);
ZEB_RECORD_OFFSET(systemTime, 76);
ZEB_RECORD_OFFSET(acceptedSync, 84);
ZEB_RECORD_OFFSET(incompletePdelay, 88);
ZEB_RECORD_OFFSET(unused92, 92);
ZEB_RECORD_OFFSET(sequenceId, 104);
ZEB_RECORD_OFFSET(fitEstimate, 108);
ZEB_RECORD_OFFSET(pdelayOffset, 116);
ZEB_RECORD_OFFSET(fitSlope, 124);
ZEB_RECORD_OFFSET(pdelayRatio, 136);
ZEB_RECORD_OFFSET(pdelayT3, 148);
ZEB_RECORD_OFFSET(pdelayPhcTime, 156);
ZEB_RECORD_OFFSET(pdelaySystemTime, 164);
ZEB_RECORD_OFFSET(unused172, 172);
#undef ZEB_RECORD_OFFSET
#endif

/* The two conversions are exported under their plain and their C++ names, so that C hosts, C++
 * hosts and dlsym all find them. */

/** Converts a CLOCK_REALTIME reading in ns to grandmaster time in ns.
 *
 *  Computed in double precision, so present-day results are multiples of 256 ns; a time that no
 *  unsigned 64-bit value holds gives 0x8000000000000000. Reads only the record; any thread. */
unsigned long long get_1AS_time(gPtpTimeDataStruct* data, long long systemTimeNs);

/** Converts grandmaster time in ns back to a CLOCK_REALTIME reading in ns.
 *
 *  A record whose rates are still zero gives 0x8000000000000000. Any thread. */
unsigned long long get_1AS_time_invers(gPtpTimeDataStruct* data, unsigned long long asTimeNs);
