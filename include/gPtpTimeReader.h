/** Reads the time that a daemon publishes for an interface, from any process and without the
 *  library: earliest and latest grandmaster time of a moment, or by name why there is none.
 *
 *      gPtpTimeReader reader;
 *      gPtpTimeReading reading;
 *      gPtpReaderOpen(&reader, "eth1");
 *      int result = gPtpReaderNow(&reader, &reading);
 *      if (result != GPTP_READ_OK) fprintf(stderr, "eth1: %s\n", gPtpReadText(result));
 *
 *  A reader serves one thread at a time; several threads open one each. Nothing here takes a lock,
 *  allocates or writes into the segment. Compiles as C99 and as C++, with GCC and Clang for x86;
 *  gPtpTimeReader.hpp wraps it for C++. */
#pragma once

/* First, since it asks the system headers for POSIX where the compiler is strict. */
#include "gPtpTimeReading.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

typedef struct gPtpTimeReader {
    gPtpReadLimits limits; /**< 60 s and any width unless set after opening */
    /* The rest is the reader's own. */
    const unsigned int* words;
    unsigned long long device;
    unsigned long long inode;
    long long lookedAtNs;
    gPtpRates rates;
    unsigned int knownSequence;
    char name[16];
} gPtpTimeReader;

/* ---- parts ---- */

static inline void gPtpUnmap(gPtpTimeReader* reader) {
    if (reader->words) {
        munmap((void*)reader->words, kSharedSegmentSize);
    }
}

/** Takes a file in place of the segment at hand. Reading beyond the end of one that has not been
 *  sized yet would raise SIGBUS. */
static inline int gPtpMap(gPtpTimeReader* reader, int file) {
    struct stat status;
    if (fstat(file, &status) != 0) {
        return GPTP_READ_NOT_READABLE;
    }
    if (!S_ISREG(status.st_mode) || status.st_size != kSharedSegmentSize) {
        return GPTP_READ_FOREIGN;
    }
    void* const mapped = mmap(GPTP_NULL, kSharedSegmentSize, PROT_READ, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) {
        return GPTP_READ_NOT_READABLE;
    }
    gPtpUnmap(reader);
    reader->words = (const unsigned int*)mapped;
    reader->device = status.st_dev;
    reader->inode = status.st_ino;
    reader->knownSequence = gPtpWord(reader->words + kGptpSequenceWord);
    return GPTP_READ_OK;
}

/** Maps the segment that bears the name now, unless it is the one at hand, which stays until there
 *  is a whole one in its place. */
static inline int gPtpLook(gPtpTimeReader* reader) {
    char path[32];
    struct stat status;
    if (reader->name[0] == '\0') {
        return GPTP_READ_BAD_NAME;
    }
    snprintf(path, sizeof path, "/dev/shm/%s", reader->name);
    if (reader->words && stat(path, &status) == 0 && status.st_dev == reader->device &&
        status.st_ino == reader->inode) {
        return GPTP_READ_OK;
    }
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) {
        return errno == ENOENT  ? GPTP_READ_NO_SEGMENT
               : errno == ELOOP ? GPTP_READ_FOREIGN
                                : GPTP_READ_NOT_READABLE;
    }
    const int result = gPtpMap(reader, file);
    close(file);
    return result;
}

static inline int gPtpIsFar(long long aNs, long long bNs) {
    const unsigned long long kLookEveryNs = 1000000000;
    const unsigned long long apart = (unsigned long long)aNs - (unsigned long long)bNs;
    return apart + kLookEveryNs > 2 * kLookEveryNs;
}

/** The head of the record that bears the name. That is looked up where nothing is mapped, and else
 *  once a second, since a daemon may have made a new segment. */
static inline int gPtpTake(gPtpTimeReader* reader, gPtpHead* head, long long* systemNs,
                           int readsClock) {
    if (!reader->words) {
        const int looked = gPtpLook(reader);
        if (looked != GPTP_READ_OK) {
            memset(head, 0, sizeof *head);
            return looked;
        }
    }
    const int result = gPtpTakeHead(reader->words, head, readsClock ? systemNs : GPTP_NULL);
    if (!gPtpIsFar(*systemNs, reader->lookedAtNs)) {
        return result;
    }
    const long long nowNs = readsClock ? *systemNs : gPtpSystemNow();
    if (!gPtpIsFar(nowNs, reader->lookedAtNs)) {
        return result;
    }
    const unsigned int* const words = reader->words;
    reader->lookedAtNs = nowNs;
    (void)gPtpLook(reader);
    return words == reader->words
               ? result
               : gPtpTakeHead(reader->words, head, readsClock ? systemNs : GPTP_NULL);
}

static inline int gPtpReadMoment(gPtpTimeReader* reader, gPtpTimeReading* reading, int isNow) {
    gPtpHead head;
    const int taken = gPtpTake(reader, &head, &reading->systemNs, isNow);
    if (taken != GPTP_READ_OK && taken != GPTP_READ_NO_QUALITY) {
        return taken;
    }
    gPtpFollowRates(&reader->rates, &head);
    if (reader->rates.isPlausible) {
        reading->timeNs = gPtpToMaster(&head, reader->rates.gain, reading->systemNs);
    }
    return gPtpJudge(&reader->limits, &head, taken, reading, isNow);
}

/** Whether somebody holds the daemon's lock: 1 yes, 0 no, -1 when there is none or the kernel does
 *  not tell. Its own list is asked, since to try the lock could keep a daemon from starting. */
static inline int gPtpLockIsHeld(const gPtpTimeReader* reader) {
    char text[128];
    char wanted[64];
    struct stat status;
    snprintf(text, sizeof text, "/dev/shm/%s.lock", reader->name);
    FILE* const locks = stat(text, &status) == 0 ? fopen("/proc/locks", "re") : GPTP_NULL;
    if (!locks) {
        return -1;
    }
    snprintf(wanted, sizeof wanted, " %02x:%02x:%llu ", major(status.st_dev), minor(status.st_dev),
             (unsigned long long)status.st_ino);
    int isHeld = 0;
    while (!isHeld && fgets(text, sizeof text, locks)) {
        isHeld = strstr(text, " FLOCK ") && strstr(text, wanted);
    }
    fclose(locks);
    return isHeld;
}

/* ---- what a program calls ---- */

/** Opens the segment of an interface; it is only read, and neither made nor changed. A reader that
 *  could not be opened may be used all the same: each reading tries again. */
static inline int gPtpReaderOpen(gPtpTimeReader* reader, const char* interfaceName) {
    const size_t length = strlen(interfaceName);
    memset(reader, 0, sizeof *reader);
    reader->limits.maxAgeNs = 60000000000;
    if (length == 0 || length >= sizeof reader->name || strchr(interfaceName, '/')) {
        return GPTP_READ_BAD_NAME;
    }
    memcpy(reader->name, interfaceName, length);
    return gPtpLook(reader);
}

static inline void gPtpReaderClose(gPtpTimeReader* reader) {
    gPtpUnmap(reader);
    memset(reader, 0, sizeof *reader);
}

/** Grandmaster time now. Returns enum gPtpReadResult; the reading holds what is known whatever the
 *  result, and has a time from GPTP_READ_NO_QUALITY on. */
static inline int gPtpReaderNow(gPtpTimeReader* reader, gPtpTimeReading* reading) {
    gPtpForgetReading(reading, reader->lookedAtNs);
    return gPtpReadMoment(reader, reading, 1);
}

/** Grandmaster time at a CLOCK_REALTIME reading, such as a socket's receive timestamp, which may be
 *  earlier than the last Sync. As gPtpReaderNow. */
static inline int gPtpReaderAt(gPtpTimeReader* reader, long long systemNs,
                               gPtpTimeReading* reading) {
    gPtpForgetReading(reading, systemNs);
    return gPtpReadMoment(reader, reading, 0);
}

/** CLOCK_REALTIME at a grandmaster time: earliestNs, latestNs, timeNs and systemNs are then all of
 *  the system clock. As gPtpReaderNow. */
static inline int gPtpReaderSystemAt(gPtpTimeReader* reader, long long masterNs,
                                     gPtpTimeReading* reading) {
    gPtpHead head;
    gPtpForgetReading(reading, reader->lookedAtNs);
    const int taken = gPtpTake(reader, &head, &reading->systemNs, 1);
    if (taken != GPTP_READ_OK && taken != GPTP_READ_NO_QUALITY) {
        return taken;
    }
    gPtpFollowRates(&reader->rates, &head);
    const long double gain = reader->rates.gain;
    if (reader->rates.isPlausible) {
        reading->systemNs = gPtpToSystem(&head, gain, masterNs);
        reading->timeNs = masterNs;
    }
    const int result = gPtpJudge(&reader->limits, &head, taken, reading, 0);
    if (reading->earliestNs != LLONG_MIN) {
        reading->earliestNs = gPtpToSystem(&head, gain, reading->earliestNs);
        reading->latestNs = gPtpToSystem(&head, gain, reading->latestNs);
    }
    if (reading->timeNs != LLONG_MIN) {
        reading->timeNs = reading->systemNs;
    }
    return result;
}

/** A copy of the whole record, in which the members of the time belong together. Returns
 *  GPTP_READ_OK, GPTP_READ_NO_QUALITY or why there is none. */
static inline int gPtpReaderRecord(gPtpTimeReader* reader, gPtpTimeDataStruct* record) {
    gPtpHead before;
    gPtpHead after;
    unsigned int words[kGptpRecordWords];
    const int looked = gPtpLook(reader);
    if (!reader->words) {
        return looked;
    }
    for (int i = 0; i < kGptpTries; ++i) {
        const int result = gPtpTakeHead(reader->words, &before, GPTP_NULL);
        if (result != GPTP_READ_OK && result != GPTP_READ_NO_QUALITY) {
            return result;
        }
        for (int word = 0; word < kGptpRecordWords; ++word) {
            words[word] = gPtpWord(reader->words + kGptpRecordWord + word);
        }
        __atomic_thread_fence(__ATOMIC_ACQUIRE);
        gPtpCopyHead(&after, reader->words);
        if (memcmp(&before, &after, sizeof after) == 0) {
            memcpy(record, words, sizeof *record);
            return result;
        }
    }
    return GPTP_READ_TORN;
}

/** Whether the daemon lives: GPTP_READ_OK, GPTP_READ_OWNER_GONE, or why that cannot be told. Takes
 *  some 10 us and belongs beside the readings, say once a second. Who has written since the last
 *  check lives; else who holds the interface's lock; else, where there is no lock, whoever has the
 *  daemon's process id. So a used-again id is noticed beside a lock alone, and a daemon in another
 *  pid namespace, whose id and lock are not seen, only while it writes. */
static inline int gPtpReaderOwner(gPtpTimeReader* reader) {
    gPtpHead head;
    long long nowNs = reader->lookedAtNs;
    const int taken = gPtpTake(reader, &head, &nowNs, 1);
    if (taken != GPTP_READ_OK && taken != GPTP_READ_TORN) {
        return taken;
    }
    const unsigned int sequence = gPtpWord(reader->words + kGptpSequenceWord);
    if (sequence != reader->knownSequence) {
        reader->knownSequence = sequence;
        return GPTP_READ_OK;
    }
    const int isHeld = gPtpLockIsHeld(reader);
    if (isHeld >= 0) {
        return isHeld ? GPTP_READ_OK : GPTP_READ_OWNER_GONE;
    }
    const pid_t owner = (pid_t)head.ownerPid;
    return owner > 0 && kill(owner, 0) != 0 && errno == ESRCH ? GPTP_READ_OWNER_GONE : GPTP_READ_OK;
}

/** Whether a was certainly before b, or certainly after it. Both are of one daemon or of daemons
 *  that follow one grandmaster, with no announced step between them. */
static inline enum gPtpOrder gPtpCompare(const gPtpTimeReading* a, const gPtpTimeReading* b) {
    return a->latestNs < b->earliestNs   ? GPTP_BEFORE
           : a->earliestNs > b->latestNs ? GPTP_AFTER
                                         : GPTP_CANNOT_TELL;
}

/** A result in words. */
static inline const char* gPtpReadText(int result) {
    static const char* const kTexts[] = {
        "the time is known within its bound",
        "no name of an interface",
        "no segment: no daemon has run on this interface",
        "the segment is not readable",
        "the segment is not a daemon's, or of an unknown layout",
        "the daemon knows no time yet",
        "the record kept changing",
        "a daemon that tells no bound",
        "the daemon does not know its master's time well enough yet",
        "the time is stale",
        "the bound is void",
        "the bound is wider than the limit",
        "the daemon's process has ended",
    };
    const int count = (int)(sizeof kTexts / sizeof kTexts[0]);
    return result >= 0 && result < count ? kTexts[result] : "unknown result";
}
