#include "tools/tsyn/run/SyncTracker.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using tsyn::SyncState;
using tsyn::SyncTracker;

constexpr double kIntervalMs = 125.0;
constexpr double kIntervalS = 0.125;

gPtpTimeDataStruct recordAfter(unsigned int syncs, unsigned int evaluatedPairs, long double ratio) {
    gPtpTimeDataStruct record{};
    record.acceptedSync = syncs;
    record.sequenceId = syncs;
    if (evaluatedPairs > 0) {
        record.originTime = 1000000000ULL + evaluatedPairs * 125000000ULL;
        record.masterOffset = 1500000000;
        record.localTime = record.originTime + 500 + 1500000000ULL;
        std::memcpy(record.rateRatio1, &ratio, 10);
    }
    return record;
}

/** A tracker that has seen this many Sync messages with all their pairs. */
SyncTracker slaveAfter(unsigned int syncs) {
    SyncTracker tracker(false, kIntervalMs);
    tracker.update(recordAfter(0, 0, 0.0L), 0.0);
    for (unsigned int sync = 1; sync <= syncs; ++sync) {
        tracker.update(recordAfter(sync, sync - 1, 1.0L), sync * kIntervalS);
    }
    return tracker;
}

TEST(SyncTracker, StartsWithoutARecord) {
    const SyncTracker tracker(false, kIntervalMs);
    EXPECT_EQ(SyncState::kStarting, tracker.state(1.0));
}

TEST(SyncTracker, ZeroedRecordHasNoSync) {
    EXPECT_EQ(SyncState::kNoSync, slaveAfter(0).state(5.0));
}

TEST(SyncTracker, FirstTwoPairsOnlyPrime) {
    EXPECT_EQ(SyncState::kPriming, slaveAfter(1).state(kIntervalS));
    EXPECT_EQ(SyncState::kPriming, slaveAfter(2).state(2 * kIntervalS));
    EXPECT_FALSE(slaveAfter(2).firstValidS());
}

TEST(SyncTracker, ThirdPairSynchronises) {
    const SyncTracker tracker = slaveAfter(3);
    EXPECT_EQ(SyncState::kSynchronised, tracker.state(3 * kIntervalS));
    EXPECT_DOUBLE_EQ(kIntervalS, tracker.firstSyncS().value());
    EXPECT_DOUBLE_EQ(3 * kIntervalS, tracker.firstValidS().value());
}

TEST(SyncTracker, SeeingTheSameRecordAgainIsNoProgress) {
    SyncTracker tracker = slaveAfter(2);
    tracker.update(recordAfter(2, 1, 1.0L), 2.1 * kIntervalS);
    EXPECT_EQ(SyncState::kPriming, tracker.state(2.1 * kIntervalS));
}

TEST(SyncTracker, GoesStaleAfterThreeIntervals) {
    const SyncTracker tracker = slaveAfter(4);
    EXPECT_EQ(SyncState::kSynchronised, tracker.state(7 * kIntervalS));
    EXPECT_EQ(SyncState::kStale, tracker.state(7.1 * kIntervalS));
}

TEST(SyncTracker, SyncWithoutFollowUpGoesStale) {
    SyncTracker tracker = slaveAfter(4);
    for (unsigned int sync = 5; sync < 10; ++sync) {
        tracker.update(recordAfter(sync, 3, 1.0L), sync * kIntervalS);
    }
    EXPECT_EQ(SyncState::kStale, tracker.state(9 * kIntervalS));
}

TEST(SyncTracker, PairThatLeavesTheOffsetBehindIsRefused) {
    SyncTracker tracker = slaveAfter(4);
    gPtpTimeDataStruct stepped = recordAfter(5, 4, 1.0L);
    stepped.localTime += 2000000;
    tracker.update(stepped, 5 * kIntervalS);
    EXPECT_EQ(SyncState::kRefused, tracker.state(5 * kIntervalS));
}

TEST(SyncTracker, RatioOutOfRangeNeverSynchronises) {
    SyncTracker tracker = slaveAfter(1);
    for (unsigned int sync = 2; sync < 6; ++sync) {
        tracker.update(recordAfter(sync, sync - 1, 1.0003L), sync * kIntervalS);
        EXPECT_EQ(SyncState::kPriming, tracker.state(sync * kIntervalS));
    }
}

/** The daemon takes the one and refuses the other, so that tsyn must not say otherwise. */
TEST(SyncTracker, OfTheTwoExactLimitsOnlyTheFastOneSynchronises) {
    for (const auto& [ratio, state] : {std::pair{1.00025L, SyncState::kSynchronised},
                                       std::pair{0.99975L, SyncState::kPriming}}) {
        SyncTracker tracker = slaveAfter(2);
        tracker.update(recordAfter(3, 2, ratio), 3 * kIntervalS);
        EXPECT_EQ(state, tracker.state(3 * kIntervalS)) << static_cast<double>(ratio);
    }
}

TEST(SyncTracker, MasterSendsWhileItsSequenceMoves) {
    SyncTracker tracker(true, kIntervalMs);
    tracker.update(recordAfter(0, 0, 0.0L), 0.0);
    EXPECT_EQ(SyncState::kSilent, tracker.state(0.1));
    tracker.update(recordAfter(1, 0, 0.0L), 1.0);
    EXPECT_EQ(SyncState::kSending, tracker.state(1.0));
    EXPECT_EQ(SyncState::kStale, tracker.state(1.4));
}

}  // namespace
