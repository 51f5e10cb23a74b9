#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "tests/tsyn/Records.h"
#include "tools/tsyn/watch/Sparkline.h"
#include "tools/tsyn/watch/SyncMoments.h"
#include "tools/tsyn/watch/SyncStatistics.h"
#include "tools/tsyn/watch/WatchLines.h"
#include "tools/tsyn/watch/WatchPage.h"

namespace {

using records::lookAt;
using tsyn::PageShape;
using tsyn::RecentValues;
using tsyn::sparkline;
using tsyn::Watcher;

TEST(Sparkline, GoesFromTheLeastToTheMost) {
    const RecentValues rising = {0, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ("_.-~=+*#", sparkline(rising, 8, false));
    EXPECT_EQ("▁▂▃▄▅▆▇█", sparkline(rising, 8, true));
    EXPECT_EQ("#_", sparkline({-5, -6}, 2, false));
}

TEST(Sparkline, ShowsTheLatestValuesAndLeavesGaps) {
    EXPECT_EQ("_#", sparkline({100, 1, 2}, 2, false));
    EXPECT_EQ("  _ #", sparkline({1, std::nullopt, 2}, 5, false));
    EXPECT_EQ("   ", sparkline({}, 3, false));
}

TEST(Sparkline, OfASteadyValueIsHalfWayUp) {
    EXPECT_EQ("==", sparkline({42, 42}, 2, false));
}

TEST(Columns, AreCharactersAndNotBytes) {
    EXPECT_EQ(4U, tsyn::columnsOf("▁▂ab"));
    EXPECT_EQ("▁▂a", tsyn::cutTo("▁▂ab", 3));
    EXPECT_EQ("", tsyn::cutTo("ab", 0));
}

TEST(CounterLines, FillTheLineAndGoOnBelow) {
    const std::vector<std::string> lines = tsyn::counterLines({"aaaa", "bbbb", "cccc"}, 11);
    EXPECT_EQ((std::vector<std::string>{"aaaa   bbbb", "cccc"}), lines);
    EXPECT_EQ(3U, tsyn::counterLines({"aaaa", "bbbb", "cccc"}, 10).size());
}

/** A slave's record whose time lies that far beside the others'. */
tsyn::Look beside(unsigned int syncs, long long second, long long ns) {
    gPtpTimeDataStruct record = records::slave(syncs, second);
    record.masterOffset += ns;
    return lookAt(record, static_cast<double>(second));
}

TEST(SyncStatistics, TellHowFarTheSyncsMovedTheTime) {
    tsyn::SyncStatistics statistics;
    EXPECT_FALSE(statistics.take());
    statistics.add(beside(1, 1, 0));
    EXPECT_FALSE(statistics.take());
    statistics.add(beside(2, 2, 30));
    statistics.add(beside(2, 2, 30));
    statistics.add(beside(3, 3, -10));
    EXPECT_EQ("rms   35 max   40 freq -37000 +/-   0 delay   500 +/-   0", statistics.take());
    EXPECT_FALSE(statistics.take());
}

TEST(SyncStatistics, DoNotCountANewBeginningAsAStep) {
    tsyn::SyncStatistics statistics;
    statistics.add(beside(90, 1, 0));
    statistics.add(beside(2, 2, 5'000'000));
    EXPECT_FALSE(statistics.take());
}

struct Minute {
    unsigned int missed = 0;
    unsigned int looks = 0;
};

/** Looks for a minute at a slave whose Syncs come so often, each later than that by what the list
 *  tells in turn, and are published 10 ms afterwards. */
Minute minuteOf(double intervalS, const std::vector<double>& latenessS) {
    constexpr double kPublishedAfterS = 0.01;
    constexpr double kMinuteS = 60.0;
    tsyn::SyncMoments moments(true);
    Minute minute;
    unsigned int last = 0;
    for (double nowS = 2.0; nowS < kMinuteS + 2.0; nowS = moments.nextS(nowS)) {
        const auto momentS = [&](unsigned int sync) {
            return sync * intervalS + latenessS[sync % latenessS.size()];
        };
        unsigned int sync = last;
        while (momentS(sync + 1) + kPublishedAfterS <= nowS) {
            ++sync;
        }
        minute.missed += last != 0 && sync > last ? sync - last - 1 : 0;
        last = sync;
        gPtpTimeDataStruct record = records::slave(sync, 0);
        record.localTime += static_cast<unsigned long long>(momentS(sync) * 1e9);
        moments.add(lookAt(record, nowS));
        ++minute.looks;
    }
    return minute;
}

TEST(SyncMoments, TakeOneLookASyncAndMissNone) {
    const Minute regular = minuteOf(0.125, {0.0});
    EXPECT_EQ(0U, regular.missed);
    EXPECT_NEAR(480, regular.looks, 3);
    const Minute slow = minuteOf(1.0, {0.0});
    EXPECT_EQ(0U, slow.missed);
    EXPECT_NEAR(60, slow.looks, 15);
}

TEST(SyncMoments, MissNoneOfAMasterThatIsHeldUp) {
    const Minute minute = minuteOf(0.125, {0.0, 0.03, 0.0, 0.0, 0.07, 0.01, -0.02, 0.0});
    EXPECT_EQ(0U, minute.missed);
    EXPECT_LT(minute.looks, 700U);
}

TEST(SyncMoments, AreAsFrequentAsEverWhereSyncsAreFaster) {
    EXPECT_NEAR(600, minuteOf(0.03, {0.0}).looks, 3);
}

TEST(SyncMoments, FindSyncsAgainAfterASilence) {
    tsyn::SyncMoments moments(true);
    moments.add(beside(1, 1, 0));
    moments.add(beside(2, 2, 0));
    EXPECT_DOUBLE_EQ(3.4, moments.nextS(2.0));
    EXPECT_DOUBLE_EQ(3.9, moments.nextS(3.4));
    EXPECT_DOUBLE_EQ(4.4, moments.nextS(3.9));
    EXPECT_DOUBLE_EQ(9.4, moments.nextS(8.5));
}

TEST(Spread, IsThatOfLargeValuesToo) {
    tsyn::Spread spread;
    spread.add(1e15 + 1);
    spread.add(1e15 + 3);
    EXPECT_DOUBLE_EQ(1e15 + 2, spread.mean());
    EXPECT_DOUBLE_EQ(1.0, spread.deviation());
}

/** A segment of this process, which its watcher finds. */
class WatchedSegment : public testing::Test {
protected:
    void SetUp() override {
        options_.source.interfaceName = name_;
        const int fd = shm_open(("/" + name_).c_str(), O_CREAT | O_RDWR, 0600);
        ASSERT_EQ(0, ftruncate(fd, kSharedSegmentSize));
        segment_ = static_cast<unsigned char*>(
            mmap(nullptr, kSharedSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
        ASSERT_NE(MAP_FAILED, static_cast<void*>(segment_));
    }
    void TearDown() override {
        munmap(segment_, kSharedSegmentSize);
        shm_unlink(("/" + name_).c_str());
    }
    void publish(const gPtpTimeDataStruct& record) {
        std::memcpy(segment_ + kSharedRecordOffset, &record, sizeof record);
    }

    std::string name_ = "w" + std::to_string(getpid());
    tsyn::WatchOptions options_;
    unsigned char* segment_ = nullptr;
};

TEST_F(WatchedSegment, FillsAPageOfAnySize) {
    publish(records::slave(9, 5));
    Watcher watcher(options_);
    watcher.look();
    for (std::size_t rows = 1; rows < 40; rows += 6) {
        for (std::size_t columns = 1; columns < 140; columns += 23) {
            PageShape shape;
            shape.rows = rows;
            shape.columns = columns;
            const std::vector<std::string> lines = pageLines(watcher, shape);
            EXPECT_LE(lines.size(), rows);
            for (const std::string& line : lines) {
                EXPECT_LE(tsyn::columnsOf(line), columns) << line;
            }
        }
    }
}

TEST_F(WatchedSegment, IsToldWithItsOwnerAndItsKeys) {
    publish(records::slave(9, 5));
    Watcher watcher(options_);
    watcher.look();
    const std::vector<std::string> lines = pageLines(watcher, {});
    EXPECT_EQ(name_ + ": stale, role slave, profile deployed", lines.front());
    EXPECT_EQ("p, space: pause   q: quit", lines.back());
    EXPECT_EQ(getpid(), watcher.owner().pid);
    EXPECT_EQ(tsyn::Owner::Life::kLives, watcher.owner().life);
}

TEST_F(WatchedSegment, IsSetApartWhereThereIsRoomAndToldToBeCutWhereThereIsNot) {
    publish(records::slave(9, 5));
    Watcher watcher(options_);
    watcher.look();
    PageShape shape;
    shape.rows = 40;
    const std::vector<std::string> tall = pageLines(watcher, shape);
    const auto begin = std::find_if(tall.begin(), tall.end(), [](const std::string& line) {
        return line.rfind("moved ", 0) == 0;
    });
    ASSERT_NE(tall.end(), begin);
    EXPECT_EQ("", *(begin - 2));
    shape.rows = static_cast<std::size_t>(begin - tall.begin());
    const std::string cut = "p, space: pause   q: quit   ";
    EXPECT_EQ(cut, pageLines(watcher, shape).back().substr(0, cut.size()));
    EXPECT_NE(std::string::npos, pageLines(watcher, shape).back().find(" lines do not fit"));
}

TEST_F(WatchedSegment, ThatBeginsAnewIsPointedOut) {
    publish(records::slave(9, 5));
    Watcher watcher(options_);
    watcher.look();
    EXPECT_FALSE(watcher.hasBegunAnew());
    publish(gPtpTimeDataStruct{});
    watcher.look();
    EXPECT_TRUE(watcher.hasBegunAnew());
    EXPECT_EQ("the daemon began anew", watcher.note());
}

TEST(Watcher, WaitsForASegmentThatIsNotThere) {
    tsyn::WatchOptions options;
    options.source.interfaceName = "nope" + std::to_string(getpid());
    Watcher watcher(options);
    watcher.look();
    EXPECT_FALSE(watcher.isFound());
    EXPECT_EQ(0U, watchLine(watcher).find("waiting: nope")) << watchLine(watcher);
    EXPECT_NE(std::string::npos, watchJson(watcher, 37).find("\"event\":\"waiting\""));
}

}  // namespace
