#include "include/gPtpTimeReader.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <atomic>
#include <limits>
#include <set>
#include <string>
#include <thread>

#include "include/gPtpExactTime.h"
#include "include/gPtpTimeReader.hpp"
#include "tests/reader/Segment.h"
#include "tests/support/Packed.h"
#include "tests/support/Sandbox.h"
#include "tests/support/Seed.h"
#include "timebase/BoundedTime.h"
#include "timebase/TimeRecord.h"

namespace {

constexpr const char* kName = "rdt0";

/** A /dev/shm of the test's own. */
class Reader : public testing::Test {
protected:
    ~Reader() override { gPtpReaderClose(&reader); }

    int openOn(Segment& /*segment*/) { return gPtpReaderOpen(&reader, kName); }
    int at(long long systemNs) { return gPtpReaderAt(&reader, systemNs, &reading); }

    Sandbox sandbox;
    gPtpTimeReader reader{};
    gPtpTimeReading reading{};
};

TEST_F(Reader, RefusesWhatIsNoInterface) {
    EXPECT_EQ(GPTP_READ_BAD_NAME, gPtpReaderOpen(&reader, ""));
    EXPECT_EQ(GPTP_READ_BAD_NAME, gPtpReaderOpen(&reader, "../../etc/p"));
    EXPECT_EQ(GPTP_READ_BAD_NAME, gPtpReaderOpen(&reader, "a234567890123456"));
    EXPECT_EQ(GPTP_READ_BAD_NAME, at(kAnchorNs));
}

TEST_F(Reader, MakesNoSegmentAndFindsALaterOne) {
    EXPECT_EQ(GPTP_READ_NO_SEGMENT, gPtpReaderOpen(&reader, kName));
    EXPECT_NE(0, access("/dev/shm/rdt0", F_OK));
    Segment segment(kName);
    segment.publishBounded();
    EXPECT_EQ(GPTP_READ_OK, at(kAnchorNs));
}

TEST_F(Reader, RefusesSegmentsOfAnotherSize) {
    for (const off_t size : {0, 259, 261}) {
        Segment segment(kName, size);
        EXPECT_EQ(GPTP_READ_FOREIGN, openOn(segment)) << size;
    }
    ASSERT_EQ(0, symlink("/etc/passwd", "/dev/shm/rdt0"));
    EXPECT_EQ(GPTP_READ_FOREIGN, gPtpReaderOpen(&reader, kName));
}

TEST_F(Reader, RefusesQualityOfAnotherLayout) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    gPtpTimeQuality quality = segment.quality();
    quality.layout = 2;
    segment.setQuality(quality);
    EXPECT_EQ(GPTP_READ_FOREIGN, at(kAnchorNs));
    quality.layout = kTimeQualityLayout;
    quality.magic = 1;
    segment.setQuality(quality);
    EXPECT_EQ(GPTP_READ_FOREIGN, at(kAnchorNs));
    quality.magic = kTimeQualityMagic;
    quality.state = 5;
    segment.setQuality(quality);
    EXPECT_EQ(GPTP_READ_FOREIGN, at(kAnchorNs));
}

TEST_F(Reader, IsToldWhatItMayNotRead) {
    Segment segment(kName);
    ASSERT_EQ(0, chmod(segment.path().c_str(), 0));
    const pid_t child = fork();
    if (child == 0) {
        // Mode bits bind a process without capabilities, which this one loses as another user.
        const bool isOther = setgid(1) == 0 && setuid(1) == 0;
        _exit(isOther ? gPtpReaderOpen(&reader, kName) : 99);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    if (WEXITSTATUS(status) == 99) {
        GTEST_SKIP() << "there is no other user in this namespace";
    }
    EXPECT_EQ(GPTP_READ_NOT_READABLE, WEXITSTATUS(status));
}

TEST_F(Reader, HasNoTimeBeforeTheFirstRate) {
    Segment segment(kName);
    EXPECT_EQ(GPTP_READ_OK, openOn(segment));
    EXPECT_EQ(GPTP_READ_NO_TIME, at(kAnchorNs));
    segment.publishLine(0, 1);
    EXPECT_EQ(GPTP_READ_NO_TIME, at(kAnchorNs));
    segment.publishLine(1, std::numeric_limits<long double>::quiet_NaN());
    EXPECT_EQ(GPTP_READ_NO_TIME, at(kAnchorNs));
    EXPECT_EQ(LLONG_MIN, reading.timeNs);
    EXPECT_EQ(LLONG_MAX, reading.latestNs);
}

TEST_F(Reader, TellsTheTimeOfADeployedDaemonWithoutABound) {
    Segment segment(kName);
    segment.publishLine();
    openOn(segment);
    EXPECT_EQ(GPTP_READ_NO_QUALITY, at(kAnchorNs));
    EXPECT_EQ(kLocalNs + 1500000000, reading.timeNs);
    EXPECT_EQ(LLONG_MIN, reading.earliestNs);
    EXPECT_EQ(LLONG_MAX, reading.latestNs);
    EXPECT_EQ(static_cast<unsigned int>(kTimeStateUntold), reading.state);
    EXPECT_EQ(GPTP_READ_STALE, at(kAnchorNs + 60 * kSecondNs + 1));
}

TEST_F(Reader, TellsWhatIsWrongWithABound) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    EXPECT_EQ(GPTP_READ_OK, at(kAnchorNs + 60 * kSecondNs));
    EXPECT_EQ(GPTP_READ_VOID, at(kAnchorNs + 60 * kSecondNs + 1));
    EXPECT_EQ(static_cast<unsigned int>(TSYN_STATE_LOST), reading.state);
    reader.limits = {2 * kSecondNs, 201};
    EXPECT_EQ(GPTP_READ_STALE, at(kAnchorNs + 2 * kSecondNs + 1));
    EXPECT_EQ(GPTP_READ_OK, at(kAnchorNs));
    EXPECT_EQ(GPTP_READ_TOO_WIDE, at(kAnchorNs + 1));
    EXPECT_EQ(3U, reading.stepCount);
    segment.publishBounded(TSYN_STATE_ACQUIRING);
    EXPECT_EQ(GPTP_READ_ACQUIRING, at(kAnchorNs));
    EXPECT_EQ(200, reading.latestNs - reading.earliestNs);
    segment.publishBounded(TSYN_STATE_NO_MASTER);
    EXPECT_EQ(GPTP_READ_VOID, at(kAnchorNs));
}

TEST_F(Reader, NoticesASystemClockThatWasSetBack) {
    Segment segment(kName);
    segment.publishBounded();
    segment.record().localTime = static_cast<unsigned long long>(gPtpSystemNow() + 3 * kSecondNs);
    gPtpTimeQuality quality = segment.quality();
    quality.voidAfterNs = LLONG_MAX;
    segment.setQuality(quality);
    openOn(segment);
    EXPECT_EQ(GPTP_READ_STALE, gPtpReaderNow(&reader, &reading));
}

TEST_F(Reader, AgreesWithTheLibraryEverywhere) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    std::mt19937_64 random = seededGenerator();
    for (int i = 0; i < 20000; ++i) {
        segment.publishLine(1 + (static_cast<long double>(random() % 500001) - 250000) * 1e-9L,
                            1 + (static_cast<long double>(random() % 400001) - 200000) * 1e-9L);
        const long long spread = i % 2 == 0 ? 60 * kSecondNs : kLocalNs / 2;
        const long long systemNs =
            kAnchorNs + static_cast<long long>(random() % spread) - spread / 2;
        const TSynBoundedTime told = boundedTimeAt(segment.record(), systemNs);
        at(systemNs);
        ASSERT_EQ(told.timeNs, reading.timeNs) << i;
        ASSERT_EQ(told.earliestNs, reading.earliestNs) << i;
        ASSERT_EQ(told.latestNs, reading.latestNs) << i;
        ASSERT_EQ(told.state, reading.state) << i;
        const long long masterNs = reading.timeNs;
        gPtpReaderSystemAt(&reader, masterNs, &reading);
        ASSERT_EQ(gPtpSystemAtTime(&segment.record(), masterNs), reading.timeNs) << i;
    }
}

TEST_F(Reader, TellsTheSystemTimesBetweenWhichAGrandmasterTimeIs) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    at(kAnchorNs + kSecondNs);
    const gPtpTimeReading there = reading;
    EXPECT_EQ(GPTP_READ_OK, gPtpReaderSystemAt(&reader, there.timeNs, &reading));
    EXPECT_NEAR(0, reading.timeNs - (kAnchorNs + kSecondNs), 1);
    EXPECT_NEAR(300, reading.timeNs - reading.earliestNs, 1);
    EXPECT_NEAR(300, reading.latestNs - reading.timeNs, 1);
}

TEST_F(Reader, FollowsADaemonThatStartsAgain) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    EXPECT_EQ(GPTP_READ_OK, at(kAnchorNs));
    std::memset(static_cast<void*>(&segment.record()), 0, sizeof(gPtpTimeDataStruct));
    EXPECT_EQ(GPTP_READ_NO_TIME, at(kAnchorNs));
    segment.makeAnew();
    segment.publishBounded();
    EXPECT_EQ(GPTP_READ_NO_TIME, at(kAnchorNs));
    reader.lookedAtNs = gPtpSystemNow() - 2 * kSecondNs;
    EXPECT_EQ(GPTP_READ_OK, at(kAnchorNs));
}

TEST_F(Reader, KeepsASegmentWhoseSuccessorIsNotSizedYet) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    ASSERT_EQ(0, unlink(segment.path().c_str()));
    Segment successor(kName, 0);
    reader.lookedAtNs = 0;
    EXPECT_EQ(GPTP_READ_OK, at(kAnchorNs));
}

TEST_F(Reader, ComparesOnlyWhatItsBoundsTellApart) {
    const gPtpTimeReading early{100, 200, 150, 0, 0, 0};
    const gPtpTimeReading touching{200, 300, 250, 0, 0, 0};
    const gPtpTimeReading late{201, 300, 250, 0, 0, 0};
    gPtpTimeReading unbounded{};
    gPtpForgetReading(&unbounded, 0);
    EXPECT_EQ(GPTP_BEFORE, gPtpCompare(&early, &late));
    EXPECT_EQ(GPTP_AFTER, gPtpCompare(&late, &early));
    EXPECT_EQ(GPTP_CANNOT_TELL, gPtpCompare(&early, &touching));
    EXPECT_EQ(GPTP_CANNOT_TELL, gPtpCompare(&touching, &early));
    EXPECT_EQ(GPTP_CANNOT_TELL, gPtpCompare(&early, &unbounded));
}

TEST_F(Reader, NamesEveryResultOnce) {
    std::set<std::string> texts;
    for (int result = GPTP_READ_OK; result <= GPTP_READ_OWNER_GONE; ++result) {
        texts.insert(gPtpReadText(result));
    }
    EXPECT_EQ(GPTP_READ_OWNER_GONE + 1U, texts.size());
    EXPECT_EQ(0U, texts.count("unknown result"));
    EXPECT_STREQ("unknown result", gPtpReadText(GPTP_READ_OWNER_GONE + 1));
    EXPECT_STREQ("unknown result", gPtpReadText(-1));
}

/** A process id that nobody has. */
pid_t endedProcess() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    return child;
}

TEST_F(Reader, TellsByTheProcessIdWhetherTheOwnerLives) {
    Segment segment(kName);
    segment.publishLine();
    openOn(segment);
    EXPECT_EQ(GPTP_READ_NO_QUALITY, gPtpReaderOwner(&reader));
    segment.publishBounded();
    EXPECT_EQ(GPTP_READ_OK, gPtpReaderOwner(&reader));
    gPtpTimeQuality quality = segment.quality();
    quality.ownerPid = static_cast<unsigned int>(endedProcess());
    segment.setQuality(quality);
    EXPECT_EQ(GPTP_READ_OWNER_GONE, gPtpReaderOwner(&reader));
    // In another pid namespace it still writes.
    quality.sequence += 2;
    segment.setQuality(quality);
    EXPECT_EQ(GPTP_READ_OK, gPtpReaderOwner(&reader));
    EXPECT_EQ(GPTP_READ_OWNER_GONE, gPtpReaderOwner(&reader));
    // A writer that was killed half-way.
    quality.sequence += 1;
    segment.setQuality(quality);
    gPtpReaderOwner(&reader);
    EXPECT_EQ(GPTP_READ_OWNER_GONE, gPtpReaderOwner(&reader));
}

TEST_F(Reader, BelievesTheLockBeforeAProcessIdThatIsUsedAgain) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    const int lock = open((segment.path() + ".lock").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(0, flock(lock, LOCK_EX));
    gPtpReaderOwner(&reader);
    EXPECT_EQ(GPTP_READ_OK, gPtpReaderOwner(&reader));
    close(lock);
    EXPECT_EQ(GPTP_READ_OWNER_GONE, gPtpReaderOwner(&reader));
}

TEST_F(Reader, GivesUpOnARecordThatIsNeverWhole) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    gPtpTimeQuality quality = segment.quality();
    quality.sequence = 5;
    segment.setQuality(quality);
    gPtpTimeDataStruct record{};
    EXPECT_EQ(GPTP_READ_TORN, at(kAnchorNs));
    EXPECT_EQ(GPTP_READ_TORN, gPtpReaderNow(&reader, &reading));
    EXPECT_EQ(GPTP_READ_TORN, gPtpReaderRecord(&reader, &record));
}

/** Publishes lines whose members all tell one number, as fast as it can. */
class Writer {
public:
    explicit Writer(Segment& segment)
        : thread_([this, &segment] {
              TimeRecord record(&segment.record());
              gPtpTimeQuality quality = segment.quality();
              for (long long i = 1; !ends_; ++i) {
                  quality.voidAfterNs = kAnchorNs + i;
                  record.publishLine({static_cast<unsigned long long>(i), i, i, 1, 1}, {0, 0},
                                     quality);
                  isWriting_ = true;
              }
          }) {
        while (!isWriting_) {
            std::this_thread::yield();
        }
    }
    ~Writer() {
        ends_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> ends_{false};
    std::atomic<bool> isWriting_{false};
    std::thread thread_;
};

TEST_F(Reader, GetsWholeRecordsBesideABusyWriter) {
    Segment segment(kName);
    segment.publishBounded();
    openOn(segment);
    const Writer writer(segment);
    int whole = 0;
    for (int i = 0; i < 3000000 && whole < 20000; ++i) {
        gPtpHead head{};
        if (gPtpTakeHead(reader.words, &head, nullptr) != GPTP_READ_OK) {
            continue;
        }
        ++whole;
        ASSERT_EQ(head.localTime, head.masterOffset);
        ASSERT_EQ(head.localTime, head.systemOffset);
        ASSERT_EQ(head.localTime + kAnchorNs, head.voidAfterNs);
        gPtpTimeDataStruct record{};
        if (i % 16 == 0 && gPtpReaderRecord(&reader, &record) == GPTP_READ_OK) {
            ASSERT_EQ(valueOf(record.localTime),
                      static_cast<unsigned long long>(valueOf(record.systemOffset)));
        }
    }
    EXPECT_EQ(20000, whole);
}

TEST_F(Reader, SpeaksChronoInCxx) {
    using std::chrono::nanoseconds;
    Segment segment(kName);
    segment.publishBounded();
    gptp::TimeReader first(kName);
    gptp::TimeReader time(std::move(first));
    EXPECT_EQ(GPTP_READ_OK, time.opened());
    EXPECT_EQ(GPTP_READ_OK, time.owner());
    const gptp::SystemTime anchor{nanoseconds(kAnchorNs)};
    const gptp::MasterMoment moment = time.at(anchor);
    const gptp::MasterMoment later = time.at(anchor + nanoseconds(201));
    EXPECT_TRUE(moment);
    EXPECT_TRUE(moment.hasTime());
    EXPECT_EQ(kLocalNs + 1500000000, moment.time.time_since_epoch().count());
    EXPECT_EQ(nanoseconds(100), moment.latest - moment.time);
    EXPECT_FALSE(moment.isCertainlyBefore(later));
    EXPECT_TRUE(moment.isCertainlyBefore(time.at(anchor + nanoseconds(300))));
    EXPECT_EQ(anchor, time.systemAt(moment.time).time);
    time.setMaxWidth(nanoseconds(199));
    EXPECT_FALSE(time.at(anchor));
    EXPECT_STREQ(gPtpReadText(GPTP_READ_TOO_WIDE), time.at(anchor).text());
}

}  // namespace
