/** What a daemon tells of the time that it publishes: state, master, error bound. Written by
 * daemons whose profile has robustTime; otherwise all 64 bytes are 0. Compiles as C99 and as C++.
 */
#pragma once

#include "gPtpTimeData.h"

enum { kTimeQualityOffset = 172, kTimeQualityMagic = 0x71507467, kTimeQualityLayout = 1 };

enum TSynTimeState {
    TSYN_STATE_NO_MASTER = 0,    /**< none heard yet, or the last one left long ago */
    TSYN_STATE_ACQUIRING = 1,    /**< a master is heard, its time is not known well enough */
    TSYN_STATE_SYNCHRONISED = 2, /**< within the bound */
    TSYN_STATE_HOLDOVER = 3,     /**< the master is silent; within the bound, which grows */
    TSYN_STATE_LOST = 4          /**< the bound is void */
};

/** Bits of the member flags. */
enum TSynTimeFlags {
    TSYN_FLAG_SEVERAL_ANSWERS = 1, /**< several ports answer our delay requests: not used */
    TSYN_FLAG_OTHER_MASTERS = 2,   /**< frames of another master came within the last seconds */
    TSYN_FLAG_BETTER_MASTER = 4,   /**< an Announce was better than that of the master believed */
    TSYN_FLAG_LINK_DOWN = 8
};

#pragma pack(push, 4)
/** 64 bytes, at kTimeQualityOffset of the record. A reader takes sequence, which is odd while a
 *  writer is at work, then the whole record, then sequence again: equal and even means that all of
 *  it belongs together. */
typedef struct gPtpTimeQuality {
    unsigned int magic;          /**< kTimeQualityMagic */
    unsigned char layout;        /**< kTimeQualityLayout */
    unsigned char profile;       /**< the preset that is closest: enum TSynPreset */
    unsigned char state;         /**< enum TSynTimeState */
    unsigned char flags;         /**< enum TSynTimeFlags */
    unsigned int sequence;       /**< sequence lock over the record and these bytes */
    unsigned int boundNs;        /**< error at the anchor, localTime + systemOffset, at most */
    unsigned int boundGrowthPpb; /**< by which the bound grows, ns each second after the anchor */
    unsigned int ownerPid;       /**< process of the daemon */
    long long voidAfterNs;       /**< system time after which the bound says nothing */
    unsigned char masterIdentity[8];
    unsigned short masterPort;
    unsigned short stepCount;     /**< announced steps of the time: only they move it back */
    unsigned int ignoredFrames;   /**< of masters that are not believed */
    unsigned int unstampedFrames; /**< dropped, since the card told no receive time */
    unsigned int strayStamps;     /**< transmit times that belonged to no frame waited for */
    unsigned int unusedExchanges; /**< delay exchanges that were answered by several */
    unsigned int refusedSamples;  /**< Sync pairs that no rate or time in reach explains */
} gPtpTimeQuality;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(gPtpTimeQuality) == 64, "the quality fills the end of the record");
static_assert(offsetof(gPtpTimeDataStruct, unused172) == kTimeQualityOffset, "its place");
#endif
