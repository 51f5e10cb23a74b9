#include "profile/StepMarks.h"

#include <gtest/gtest.h>

#include "tests/profile/Profiled.h"

namespace {

constexpr unsigned long long kSyncPeriod = kSecondNs / 8;
constexpr unsigned long long kMasterTime = 1700000000ULL * kSecondNs;

/** A master whose Follow_Ups tell of its steps. */
class Master {
public:
    /** The time that a Sync takes with it. */
    void sync() {
        monotonicNs_ += kSyncPeriod;
        marks.noteSync(monotonicNs_);
        timeNs_ = kMasterTime + monotonicNs_ + offsetNs_ + kToTheStamp;
    }
    void step(long long ns) {
        marks.noteStep(ns);
        offsetNs_ += static_cast<unsigned long long>(ns);
    }
    /** Count of steps as told. */
    int followUp() { return marks.ofFollowUp(timeNs_).count; }
    int syncAndFollowUp() {
        sync();
        return followUp();
    }

    StepMarks marks;

private:
    static constexpr unsigned long long kToTheStamp = 30000;
    unsigned long long monotonicNs_ = 5 * kSecondNs;
    unsigned long long offsetNs_ = 0;
    unsigned long long timeNs_ = 0;
};

TEST(StepMarks, AStepBetweenTwoSyncsIsToldByTheSecondsFollowUp) {
    Master master;
    EXPECT_EQ(0, master.syncAndFollowUp());
    master.step(100 * kSecondNs);
    EXPECT_EQ(1, master.syncAndFollowUp());
    EXPECT_EQ(1, master.syncAndFollowUp());
}

TEST(StepMarks, AStepBehindASyncIsToldByTheNextOnesFollowUp) {
    for (const long long step : {100LL, -100LL}) {
        Master master;
        EXPECT_EQ(0, master.syncAndFollowUp());
        master.sync();
        master.step(step * kSecondNs);
        EXPECT_EQ(0, master.followUp()) << step;
        EXPECT_EQ(1, master.syncAndFollowUp()) << step;
    }
}

TEST(StepMarks, StepsBeforeTheFirstFollowUpAreToldByIt) {
    Master master;
    master.step(5);
    master.step(7);
    master.sync();
    const StepMarks::Told told = master.marks.ofFollowUp(kMasterTime);
    EXPECT_EQ(2, told.count);
    EXPECT_EQ(7, told.lastNs);
}

TEST(StepMarks, AStepThatNeverShowsIsToldByTheSecondFollowUp) {
    Master master;
    EXPECT_EQ(0, master.syncAndFollowUp());
    master.marks.noteStep(kSecondNs);
    EXPECT_EQ(0, master.syncAndFollowUp());
    EXPECT_EQ(1, master.syncAndFollowUp());
}

}  // namespace
