/** What a published record says of a moment: the arithmetic below gPtpTimeReader.h, for whoever has
 *  the segment mapped already. */
#pragma once

#if defined(__STRICT_ANSI__) && !defined(_POSIX_C_SOURCE) && !defined(_XOPEN_SOURCE) && \
    !defined(_DEFAULT_SOURCE) && !defined(_GNU_SOURCE)
#define _POSIX_C_SOURCE 200809L
#endif
#include <float.h>
#include <limits.h>
#include <string.h>
#include <time.h>

#include "gPtpTimeData.h"
#include "gPtpTimeQuality.h"

#ifndef CLOCK_REALTIME
#error "include this before all system headers, or define _POSIX_C_SOURCE as 200809L"
#endif
#ifdef __cplusplus
#define GPTP_NULL nullptr
#else
#define GPTP_NULL NULL
#endif
#if LDBL_MANT_DIG != 64
#error "the published rates are 80-bit extended values: long double must be the x87 type"
#endif

/** What came of a reading. Behind NOT_READABLE, errno tells more. */
enum gPtpReadResult {
    GPTP_READ_OK = 0,       /**< the true time lies between earliest and latest */
    GPTP_READ_BAD_NAME,     /**< no name of an interface */
    GPTP_READ_NO_SEGMENT,   /**< no daemon has run on the interface since the machine started */
    GPTP_READ_NOT_READABLE, /**< this user may not read the segment, or it cannot be mapped */
    GPTP_READ_FOREIGN,      /**< too short or too long, or of a layout unknown here */
    GPTP_READ_NO_TIME,      /**< the daemon knows no time yet */
    GPTP_READ_TORN,         /**< the record kept changing, or its writer stopped half-way */
    GPTP_READ_NO_QUALITY,   /**< a deployed daemon: timeNs without a bound */
    GPTP_READ_ACQUIRING,    /**< a master is heard, its time is not known well enough */
    GPTP_READ_STALE,        /**< no news for longer than maxAgeNs, or the system clock was set */
    GPTP_READ_VOID,         /**< the bound says nothing any more */
    GPTP_READ_TOO_WIDE,     /**< earliest and latest are further apart than maxWidthNs */
    GPTP_READ_OWNER_GONE    /**< the daemon's process has ended */
};

/** Where a daemon tells no enum TSynTimeState. */
enum { kTimeStateUntold = 255 };

enum gPtpOrder { GPTP_BEFORE = -1, GPTP_CANNOT_TELL = 0, GPTP_AFTER = 1 };

/** A moment, ns. Without a bound from LLONG_MIN to LLONG_MAX; without a time timeNs is LLONG_MIN.
 */
typedef struct gPtpTimeReading {
    long long earliestNs;
    long long latestNs;
    long long timeNs;   /**< what the daemon takes for it */
    long long systemNs; /**< CLOCK_REALTIME of the moment */
    unsigned int state; /**< enum TSynTimeState or kTimeStateUntold */
    unsigned int
        stepCount; /**< announced steps so far: readings of different counts do not compare */
} gPtpTimeReading;

/** What a reading must keep to be GPTP_READ_OK; 0: anything. */
typedef struct gPtpReadLimits {
    long long maxAgeNs;   /**< since the last Sync */
    long long maxWidthNs; /**< between earliest and latest */
} gPtpReadLimits;

enum { kGptpRecordWord = kSharedRecordOffset / 4, kGptpRecordWords = 59 };
enum { kGptpQualityWord = kGptpRecordWord + kTimeQualityOffset / 4 };
enum { kGptpSequenceWord = kGptpQualityWord + 2, kGptpTries = 1000 };

/** The members that a reading needs, without padding, so that two of them compare as bytes. */
typedef struct gPtpHead {
    unsigned long long masterOffset;
    unsigned long long systemOffset;
    unsigned long long localTime;
    unsigned long long masterMantissa; /* of rateRatio1 */
    unsigned long long phcMantissa;    /* of rateRatio2 */
    unsigned long long voidAfterNs;
    unsigned int masterExponent;
    unsigned int phcExponent;
    unsigned int magic;
    unsigned int shape; /* layout, profile, state, flags */
    unsigned int boundNs;
    unsigned int boundGrowthPpb;
    unsigned int ownerPid;
    unsigned int portAndSteps;
} gPtpHead;

static inline unsigned int gPtpWord(const unsigned int* word) {
    return __atomic_load_n(word, __ATOMIC_RELAXED);
}

/** By halves, since longer members are not aligned. */
static inline unsigned long long gPtpLong(const unsigned int* words) {
    const unsigned int low = gPtpWord(words);
    return low | (unsigned long long)gPtpWord(words + 1) << 32;
}

static inline void gPtpCopyHead(gPtpHead* head, const unsigned int* words) {
    const unsigned int* const record = words + kGptpRecordWord;
    const unsigned int* const quality = words + kGptpQualityWord;
    head->masterOffset = gPtpLong(record + 5);
    head->systemOffset = gPtpLong(record + 7);
    head->masterMantissa = gPtpLong(record + 9);
    head->masterExponent = gPtpWord(record + 11);
    head->phcMantissa = gPtpLong(record + 12);
    head->phcExponent = gPtpWord(record + 14);
    head->localTime = gPtpLong(record + 15);
    head->magic = gPtpWord(quality);
    head->shape = gPtpWord(quality + 1);
    head->boundNs = gPtpWord(quality + 3);
    head->boundGrowthPpb = gPtpWord(quality + 4);
    head->ownerPid = gPtpWord(quality + 5);
    head->voidAfterNs = gPtpLong(quality + 6);
    head->portAndSteps = gPtpWord(quality + 10);
}

/** A time_t of 32 bits is negative from 2038 on. */
static inline long long gPtpNanoseconds(const struct timespec* time) {
    const long long seconds = sizeof time->tv_sec == sizeof(int)
                                  ? (long long)(unsigned int)time->tv_sec
                                  : (long long)time->tv_sec;
    return seconds * 1000000000 + time->tv_nsec;
}

static inline long long gPtpSystemNow(void) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return gPtpNanoseconds(&now);
}

/** What belongs together. The clock is read meanwhile where it is asked for, so that no newer
 * record was there at that moment. */
static inline int gPtpTakeHead(const unsigned int* words, gPtpHead* head, long long* systemNs) {
    for (int i = 0; i < kGptpTries; ++i) {
        const unsigned int before = __atomic_load_n(words + kGptpSequenceWord, __ATOMIC_ACQUIRE);
        gPtpCopyHead(head, words);
        if (systemNs) {
            *systemNs = gPtpSystemNow();
        }
        /* The copy is complete before the sequence is looked at again. */
        __atomic_thread_fence(__ATOMIC_ACQUIRE);
        if (before % 2 != 0 ||
            before != __atomic_load_n(words + kGptpSequenceWord, __ATOMIC_RELAXED)) {
            continue;
        }
        if (head->magic != 0 || before != 0) {
            return head->magic == (unsigned int)kTimeQualityMagic &&
                           (head->shape & 0xFF) == kTimeQualityLayout
                       ? GPTP_READ_OK
                       : GPTP_READ_FOREIGN;
        }
        gPtpHead again;
        gPtpCopyHead(&again, words);
        if (memcmp(head, &again, sizeof again) == 0) {
            return GPTP_READ_NO_QUALITY;
        }
    }
    return GPTP_READ_TORN;
}

static inline long double gPtpExtended(unsigned long long mantissa, unsigned int exponent) {
    long double value = 0;
    memcpy(&value, &mantissa, 8);
    memcpy((unsigned char*)&value + 8, &exponent, 2);
    return value;
}

/** What the rates of a record come to, kept since they change with each Sync at most. */
typedef struct gPtpRates {
    unsigned long long masterMantissa;
    unsigned long long phcMantissa;
    unsigned int masterExponent;
    unsigned int phcExponent;
    long double gain; /* master over system rate less 1 */
    int isPlausible;  /* not so before the first rate, and right after a clock was set */
} gPtpRates;

static inline void gPtpFollowRates(gPtpRates* rates, const gPtpHead* head) {
    if (rates->masterMantissa == head->masterMantissa && rates->phcMantissa == head->phcMantissa &&
        rates->masterExponent == head->masterExponent && rates->phcExponent == head->phcExponent) {
        return;
    }
    rates->masterMantissa = head->masterMantissa;
    rates->phcMantissa = head->phcMantissa;
    rates->masterExponent = head->masterExponent;
    rates->phcExponent = head->phcExponent;
    rates->gain = gPtpExtended(head->masterMantissa, head->masterExponent) *
                      gPtpExtended(head->phcMantissa, head->phcExponent) -
                  1;
    rates->isPlausible = rates->gain > -0.5L && rates->gain < 0.5L;
}

/** To the nearest, the same way on both sides of 0. Plausible rates keep it within 64 bits. */
static inline unsigned long long gPtpRounded(long double value) {
    return (unsigned long long)(long long)(value < 0 ? value - 0.5L : value + 0.5L);
}

/** System time of the record's anchor, its last Sync or cross-timestamp. */
static inline unsigned long long gPtpAnchor(const gPtpHead* head) {
    return head->localTime + head->systemOffset;
}

static inline unsigned long long gPtpMasterAnchor(const gPtpHead* head) {
    return head->localTime - head->masterOffset;
}

static inline long long gPtpToMaster(const gPtpHead* head, long double gain, long long systemNs) {
    const unsigned long long elapsed = (unsigned long long)systemNs - gPtpAnchor(head);
    return (long long)(gPtpMasterAnchor(head) + elapsed +
                       gPtpRounded((long double)(long long)elapsed * gain));
}

static inline long long gPtpToSystem(const gPtpHead* head, long double gain, long long masterNs) {
    const unsigned long long elapsed = (unsigned long long)masterNs - gPtpMasterAnchor(head);
    return (long long)(gPtpAnchor(head) + elapsed -
                       gPtpRounded((long double)(long long)elapsed * gain / (1 + gain)));
}

/** What the bound has grown by, rounded up. */
static inline unsigned long long gPtpGrown(unsigned long long ageNs, unsigned int ppb) {
    const unsigned int kSecond = 1000000000;
    if (ageNs >> 36 == 0 && ppb >> 28 == 0) {
        return (ageNs * ppb + kSecond - 1) / kSecond;
    }
    const long double grown = (long double)ageNs * ppb / kSecond;
    const long double kMost = 4611686018427387904.0L;
    return grown < kMost ? (unsigned long long)grown + 1 : (unsigned long long)kMost;
}

/** Half of the distance from earliest to latest; negative: no bound. */
static inline long long gPtpHalfWidth(const gPtpHead* head, unsigned int state, long long ageNs) {
    const int isBounded = state == TSYN_STATE_SYNCHRONISED || state == TSYN_STATE_HOLDOVER ||
                          state == TSYN_STATE_ACQUIRING;
    if (!isBounded || head->boundNs == ~0U) {
        return -1;
    }
    const unsigned long long age =
        ageNs < 0 ? 0 - (unsigned long long)ageNs : (unsigned long long)ageNs;
    return (long long)(head->boundNs + gPtpGrown(age, head->boundGrowthPpb));
}

static inline unsigned int gPtpStateAt(const gPtpHead* head, long long systemNs) {
    const unsigned int state = head->shape >> 16 & 0xFF;
    const long long voidAfterNs = (long long)head->voidAfterNs;
    const int isBounded = state == TSYN_STATE_SYNCHRONISED || state == TSYN_STATE_HOLDOVER;
    return isBounded && systemNs > voidAfterNs ? (unsigned int)TSYN_STATE_LOST : state;
}

static inline int gPtpVerdict(const gPtpReadLimits* limits, const gPtpTimeReading* reading,
                              long long ageNs, int isNow) {
    /* No daemon is ahead of the clock that it reads, unless somebody has set that back. */
    const long long kAheadNs = 1000000;
    const int isStale =
        (limits->maxAgeNs > 0 && ageNs > limits->maxAgeNs) || (isNow && ageNs < -kAheadNs);
    if (reading->state == kTimeStateUntold) {
        return isStale ? GPTP_READ_STALE : GPTP_READ_NO_QUALITY;
    }
    if (reading->state == TSYN_STATE_ACQUIRING) {
        return GPTP_READ_ACQUIRING;
    }
    if (reading->state > TSYN_STATE_LOST) {
        return GPTP_READ_FOREIGN;
    }
    if (reading->earliestNs == LLONG_MIN) {
        return GPTP_READ_VOID;
    }
    if (isStale) {
        return GPTP_READ_STALE;
    }
    const unsigned long long width =
        (unsigned long long)reading->latestNs - (unsigned long long)reading->earliestNs;
    return limits->maxWidthNs > 0 && width > (unsigned long long)limits->maxWidthNs
               ? GPTP_READ_TOO_WIDE
               : GPTP_READ_OK;
}

/** Of timeNs and of what is around it on the side of the master. */
static inline int gPtpJudge(const gPtpReadLimits* limits, const gPtpHead* head, int taken,
                            gPtpTimeReading* reading, int isNow) {
    const long long ageNs = (long long)((unsigned long long)reading->systemNs - gPtpAnchor(head));
    const int isTold = taken == GPTP_READ_OK;
    reading->state = isTold ? gPtpStateAt(head, reading->systemNs) : (unsigned int)kTimeStateUntold;
    reading->stepCount = isTold ? head->portAndSteps >> 16 : 0;
    if (reading->timeNs == LLONG_MIN) {
        return GPTP_READ_NO_TIME;
    }
    const long long half = isTold ? gPtpHalfWidth(head, reading->state, ageNs) : -1;
    if (half >= 0) {
        const unsigned long long time = (unsigned long long)reading->timeNs;
        reading->earliestNs = (long long)(time - (unsigned long long)half);
        reading->latestNs = (long long)(time + (unsigned long long)half);
    }
    return gPtpVerdict(limits, reading, ageNs, isNow);
}

static inline void gPtpForgetReading(gPtpTimeReading* reading, long long systemNs) {
    reading->earliestNs = LLONG_MIN;
    reading->latestNs = LLONG_MAX;
    reading->timeNs = LLONG_MIN;
    reading->systemNs = systemNs;
    reading->state = kTimeStateUntold;
    reading->stepCount = 0;
}
