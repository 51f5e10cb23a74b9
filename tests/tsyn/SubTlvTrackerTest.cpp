#include "tools/tsyn/run/SubTlvTracker.h"

#include <gtest/gtest.h>

namespace {

using tsyn::CrcField;
using tsyn::SubTlvReading;
using tsyn::SubTlvTracker;

SubTlvReading reading(unsigned int count, unsigned char time1Valid = 1) {
    SubTlvReading result;
    result.report = {count, {0, 1, 2, 3}, {1, time1Valid, 1, 1}};
    return result;
}

TEST(SubTlvTracker, CountsAFollowUpOneLookAfterItsSync) {
    SubTlvTracker tracker;
    tracker.update(1, reading(0));
    EXPECT_EQ(tracker.followUps(), 0U);
    tracker.update(1, reading(4));
    tracker.update(1, reading(4));
    EXPECT_EQ(tracker.followUps(), 1U);
    EXPECT_EQ(tracker.allValid(), 1U);
    EXPECT_EQ(tracker.valid(CrcField::kUserData), 1U);
}

TEST(SubTlvTracker, SyncInEveryLookIsCountedOnce) {
    SubTlvTracker tracker;
    for (unsigned int sync = 1; sync <= 10; ++sync) {
        tracker.update(sync, reading(4));
    }
    EXPECT_EQ(tracker.followUps(), 9U);
}

TEST(SubTlvTracker, OneWrongCrcSpoilsAFollowUp) {
    SubTlvTracker tracker;
    tracker.update(1, reading(4, 0));
    tracker.update(1, reading(4, 0));
    EXPECT_EQ(tracker.followUps(), 1U);
    EXPECT_EQ(tracker.allValid(), 0U);
    EXPECT_EQ(tracker.valid(CrcField::kTime0), 1U);
    EXPECT_EQ(tracker.valid(CrcField::kTime1), 0U);
}

TEST(SubTlvTracker, FollowUpsWithoutSubTlvsDoNotCount) {
    SubTlvTracker tracker;
    tracker.update(1, reading(0));
    tracker.update(1, reading(0));
    EXPECT_EQ(tracker.followUps(), 0U);
    EXPECT_FALSE(tracker.last());
}

TEST(SubTlvTracker, CountBeyondItsRoomReadsFourEntries) {
    EXPECT_EQ(tsyn::recordedCrcs(reading(6)), 4U);
    EXPECT_TRUE(tsyn::allCrcsValid(reading(6)));
    EXPECT_FALSE(tsyn::allCrcsValid(reading(0)));
}

}  // namespace
