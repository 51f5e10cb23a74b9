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
    EXPECT_EQ(0U, tracker.followUps());
    tracker.update(1, reading(4));
    tracker.update(1, reading(4));
    EXPECT_EQ(1U, tracker.followUps());
    EXPECT_EQ(1U, tracker.allValid());
    EXPECT_EQ(1U, tracker.valid(CrcField::kUserData));
}

TEST(SubTlvTracker, SyncInEveryLookIsCountedOnce) {
    SubTlvTracker tracker;
    for (unsigned int sync = 1; sync <= 10; ++sync) {
        tracker.update(sync, reading(4));
    }
    EXPECT_EQ(9U, tracker.followUps());
}

TEST(SubTlvTracker, OneWrongCrcSpoilsAFollowUp) {
    SubTlvTracker tracker;
    tracker.update(1, reading(4, 0));
    tracker.update(1, reading(4, 0));
    EXPECT_EQ(1U, tracker.followUps());
    EXPECT_EQ(0U, tracker.allValid());
    EXPECT_EQ(1U, tracker.valid(CrcField::kTime0));
    EXPECT_EQ(0U, tracker.valid(CrcField::kTime1));
}

TEST(SubTlvTracker, FollowUpsWithoutSubTlvsDoNotCount) {
    SubTlvTracker tracker;
    tracker.update(1, reading(0));
    tracker.update(1, reading(0));
    EXPECT_EQ(0U, tracker.followUps());
    EXPECT_FALSE(tracker.last());
}

TEST(SubTlvTracker, CountBeyondItsRoomReadsFourEntries) {
    EXPECT_EQ(4U, tsyn::recordedCrcs(reading(6)));
    EXPECT_TRUE(tsyn::allCrcsValid(reading(6)));
    EXPECT_FALSE(tsyn::allCrcsValid(reading(0)));
}

}  // namespace
