#include "profile/TimeKeeper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "base/Extended80.h"
#include "tests/profile/Profiled.h"
#include "timebase/TimeConversion.h"

namespace {

using estimator::Reading;

constexpr long long kEpoch = 1767225600000000000LL;
constexpr long long kInterval = kSecondNs / 8;

/** A slave with its three clocks, as functions of what has elapsed; stamps of 8 ns, brackets of
 *  some 200. */
class Slave : public testing::Test {
protected:
    long long master(long long t) const { return kEpoch + t + masterSet; }
    long long phc(long long t) const { return kEpoch + t + rounded(37e-6, t) + 777 + phcSet; }
    long long system(long long t) const { return kEpoch + t - rounded(5e-6, t) - 555 + systemSet; }

    static long long rounded(double rate, long long t) {
        return static_cast<long long>(std::floor(rate * static_cast<double>(t) + 0.5));
    }
    static unsigned long long stamp(long long ns) {
        return static_cast<unsigned long long>(ns / 8 * 8);
    }

    Reading clocks() {
        std::uniform_int_distribution<int> extra(0, 100);
        const int half = extra(random);
        std::uniform_int_distribution<int> inside(-half, half);
        return {static_cast<unsigned long long>(system(elapsed) + inside(random)),
                stamp(phc(elapsed)), 80.0 + half};
    }

    /** Hands a pair over and publishes; error: of its stamps. */
    TimeKeeper::Publication sync(long long error = 0) {
        elapsed += kInterval;
        keeper.takePair({stamp(phc(elapsed)), stamp(master(elapsed) - delay.ns + error), 0});
        elapsed += 100000;
        return look();
    }

    TimeKeeper::Publication look() {
        const Reading reading = clocks();
        if (!keeper.takeClocks(reading)) {
            keeper.followClocks(clocks());
        }
        elapsed += 5000;
        shown = keeper.publish(static_cast<unsigned long long>(system(elapsed)), delay);
        return shown;
    }

    long long shownAt(long long t) const {
        gPtpTimeDataStruct record{};
        storeLine(record, shown.line);
        return currentTimeNs(record, static_cast<unsigned long long>(system(t)));
    }

    double boundAt(long long t) const { return boundOf(shown, t); }
    double boundOf(const TimeKeeper::Publication& told, long long t) const {
        const long long anchor =
            static_cast<long long>(told.line.localTime) + told.line.systemOffset;
        return told.boundNs +
               told.boundGrowthPpb * 1e-9 * std::fabs(static_cast<double>(system(t) - anchor));
    }

    void settle() {
        lookFirst();
        for (int i = 0; i < 20; ++i) {
            sync();
        }
    }
    void lookFirst() { keeper.takeClocks(clocks()); }

    std::mt19937 random{1};
    TimeKeeper keeper;
    TimeKeeper::Delay delay{500, 0, true};
    TimeKeeper::Publication shown{};
    long long elapsed = 10 * kSecondNs;
    long long masterSet = 0;
    long long phcSet = 0;
    long long systemSet = 0;
};

TEST_F(Slave, IsWithinItsBoundAlways) {
    std::vector<double> bounds;
    settle();
    for (int i = 0; i < 2000; ++i) {
        sync();
        for (const long long later : {0LL, kInterval / 2, kInterval}) {
            const auto error =
                static_cast<double>(shownAt(elapsed + later) - master(elapsed + later));
            ASSERT_LE(std::fabs(error), boundAt(elapsed + later));
            ASSERT_LE(std::fabs(error), 150);
        }
        ASSERT_EQ(TSYN_STATE_SYNCHRONISED, shown.state);
        bounds.push_back(boundAt(elapsed));
    }
    std::sort(bounds.begin(), bounds.end());
    EXPECT_LE(bounds[bounds.size() / 2], 150);
}

TEST_F(Slave, NeverTurnsTheTimeBack) {
    settle();
    long long before = shownAt(elapsed);
    for (int i = 0; i < 2000; ++i) {
        elapsed += kInterval - 105000;
        const long long last = shownAt(elapsed + 5000);
        ASSERT_GE(last, before);
        look();
        ASSERT_FALSE(shown.isStep);
        ASSERT_GE(shownAt(elapsed), last);
        sync();
        before = shownAt(elapsed);
    }
}

TEST_F(Slave, MeetsALineBelowWithinOneInterval) {
    settle();
    delay.ns -= 3000;
    masterSet -= 3000;
    const long long ahead = shownAt(elapsed) - master(elapsed);
    look();
    EXPECT_NEAR(static_cast<double>(ahead), static_cast<double>(shownAt(elapsed) - master(elapsed)),
                20);
    EXPECT_LE(std::llabs(shownAt(elapsed + kInterval) - master(elapsed + kInterval)), 40);
}

/** A master that was stopped tells of the Syncs that it missed all at once. */
TEST_F(Slave, DoesNotHurryForPairsThatComeTogether) {
    settle();
    for (const long long interval : {24 * kInterval, 70000LL}) {
        elapsed += interval - kInterval;
        masterSet -= 40;  // what the oscillators wandered
        sync();
    }
    for (int i = 1; i <= 8; ++i) {
        const long long later = elapsed + i * kInterval / 8;
        const long long error = shownAt(later) - master(later);
        EXPECT_LE(std::llabs(error), 200);
        EXPECT_LE(static_cast<double>(std::llabs(error)), boundAt(later));
    }
}

TEST_F(Slave, AnnouncesAStepOfTheMasterAtTheThirdPair) {
    settle();
    masterSet -= kSecondNs;
    EXPECT_FALSE(sync().isStep);
    EXPECT_EQ(TSYN_STATE_ACQUIRING, shown.state);
    EXPECT_FALSE(sync().isStep);
    EXPECT_TRUE(sync().isStep);
    EXPECT_EQ(TSYN_STATE_SYNCHRONISED, shown.state);
    EXPECT_LE(std::llabs(shownAt(elapsed) - master(elapsed)), 60);
    EXPECT_FALSE(sync().isStep);
}

TEST_F(Slave, CoversAPairThatItDoesNotBelieveYet) {
    settle();
    masterSet += 20000;
    sync();
    EXPECT_EQ(TSYN_STATE_SYNCHRONISED, shown.state);
    EXPECT_LE(std::llabs(shownAt(elapsed) - master(elapsed)), boundAt(elapsed));
}

TEST_F(Slave, GoesOnWhenItsOwnClocksAreSet) {
    settle();
    phcSet += kSecondNs;
    sync();
    EXPECT_FALSE(shown.isStep);
    EXPECT_LE(std::llabs(shownAt(elapsed) - master(elapsed)), 300);
    systemSet -= 3600 * kSecondNs;
    keeper.shiftSystem(-3600 * kSecondNs);
    sync();
    EXPECT_FALSE(shown.isStep);
    EXPECT_LE(std::llabs(shownAt(elapsed) - master(elapsed)), 300);
}

TEST_F(Slave, TellsHoldoverAndLossOfASilentMaster) {
    settle();
    elapsed += 4 * kInterval;
    EXPECT_EQ(TSYN_STATE_HOLDOVER, look().state);
    for (int i = 0; i < 50; ++i) {
        elapsed += kSecondNs;
        look();
        ASSERT_EQ(TSYN_STATE_HOLDOVER, shown.state);
        ASSERT_LE(std::llabs(shownAt(elapsed) - master(elapsed)), boundAt(elapsed));
    }
    elapsed += 20 * kSecondNs;
    EXPECT_EQ(TSYN_STATE_LOST, look().state);
    EXPECT_LT(shown.voidAfterNs, system(elapsed));
}

TEST_F(Slave, KnowsNothingBetterWhileTheMasterIsSilent) {
    settle();
    const TimeLine atSync = shown.line;
    elapsed += 3 * kInterval;
    for (int i = 0; i < 58; ++i) {
        const TimeKeeper::Publication before = shown;
        elapsed += kSecondNs;
        const long long last = shownAt(elapsed + 5000);
        look();
        ASSERT_GE(shownAt(elapsed), last);
        ASSERT_GE(boundAt(elapsed), boundOf(before, elapsed)) << i;
        if (i > 0) {
            ASSERT_LE(boundAt(elapsed), boundOf(before, elapsed) + 20) << "grows faster than told";
        }
        ASSERT_LE(std::llabs(shownAt(elapsed) - master(elapsed)), boundAt(elapsed));
        ASSERT_EQ(atSync.masterOffset, shown.line.masterOffset);
        ASSERT_EQ(atSync.localTime, shown.line.localTime);
        ASSERT_EQ(atSync.masterRate, shown.line.masterRate);
    }
}

TEST_F(Slave, HasNoMasterThenAcquiresOne) {
    lookFirst();
    EXPECT_EQ(TSYN_STATE_NO_MASTER,
              keeper.state(static_cast<unsigned long long>(system(elapsed)), delay));
    elapsed += kInterval;
    keeper.takePair({stamp(phc(elapsed)), stamp(master(elapsed)), 0});
    EXPECT_FALSE(keeper.hasTime());
    sync();
    EXPECT_TRUE(keeper.hasTime());
    EXPECT_EQ(TSYN_STATE_ACQUIRING, shown.state);
    sync();
    EXPECT_EQ(TSYN_STATE_SYNCHRONISED, shown.state);
}

TEST_F(Slave, IsNotSynchronisedWhileTheDelayIsUnknown) {
    delay.isKnown = false;
    settle();
    EXPECT_EQ(TSYN_STATE_ACQUIRING, shown.state);
}

TEST_F(Slave, AsAMasterTellsItsPhc) {
    keeper.beMaster(0);
    lookFirst();
    for (int i = 0; i < 100; ++i) {
        elapsed += kInterval;
        look();
        ASSERT_EQ(0, shown.line.masterOffset);
        ASSERT_EQ(TSYN_STATE_SYNCHRONISED, shown.state);
    }
    EXPECT_LE(std::llabs(shownAt(elapsed) - phc(elapsed)), 40);
    phcSet -= kSecondNs;
    elapsed += kInterval;
    EXPECT_TRUE(look().isStep);
    EXPECT_LE(std::llabs(shownAt(elapsed) - phc(elapsed)), 300);
}

TEST_F(Slave, AsAMasterTellsWhatTheHostPutOnTopOfItsPhcAndThatItIsAStep) {
    keeper.beMaster(0);
    lookFirst();
    look();
    for (const long long ahead : {5 * kSecondNs, 5 * kSecondNs + 1, -3 * kSecondNs}) {
        elapsed += kInterval;
        keeper.beMaster(ahead);
        EXPECT_TRUE(look().isStep);
        EXPECT_EQ(-ahead, shown.line.masterOffset);
        EXPECT_LE(std::llabs(shownAt(elapsed) - phc(elapsed) - ahead), 300);
        EXPECT_LE(std::llabs(static_cast<long long>(shown.line.localTime) - phc(elapsed)), 300);
        keeper.beMaster(ahead);
        EXPECT_FALSE(look().isStep);
    }
}

}  // namespace
