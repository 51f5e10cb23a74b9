#include <gtest/gtest.h>

#include <algorithm>

#include "tests/profile/Profiled.h"
#include "tests/support/StdoutCapture.h"

namespace {

using std::chrono::milliseconds;

constexpr unsigned char kFirst = 0xAA;
constexpr unsigned char kOther = 0xBB;

Bytes syncOf(unsigned char clock) {
    return messageOf(0, 44, clock);
}

Bytes followUpOf(unsigned char clock) {
    return messageOf(8, 76, clock);
}

Bytes announceOf(unsigned char clock, unsigned char priority1, unsigned char clockClass) {
    Bytes message = messageOf(11, 76, clock);
    message[47] = priority1;
    message[48] = clockClass;
    std::fill_n(message.begin() + 53, 8, clock);
    return message;
}

/** A slave of 125 ms in simulated time. */
class Masters : public testing::Test {
protected:
    Masters() {
        configure(slaveConfig());
        setProfile(deployedWith({{"oneMaster", 1}}));
    }

    static unsigned char believed() { return qualityNow().masterIdentity[0]; }
    static bool hasFlag(TSynTimeFlags flag) { return (qualityNow().flags & flag) != 0; }

    TimeSandbox sandbox_;
    StdoutCapture output_;
};

TEST_F(Masters, TheFirstHeardIsBelieved) {
    EXPECT_TRUE(isAdmitted(syncOf(kFirst)));
    EXPECT_TRUE(isAdmitted(followUpOf(kFirst)));
    EXPECT_EQ(kFirst, believed());
    EXPECT_EQ(1, qualityNow().masterPort);
    EXPECT_EQ(0U, qualityNow().ignoredFrames);
}

TEST_F(Masters, FramesOfAnotherAreCountedAndNotHandled) {
    isAdmitted(syncOf(kFirst));
    EXPECT_FALSE(hasFlag(TSYN_FLAG_OTHER_MASTERS));
    EXPECT_FALSE(isAdmitted(syncOf(kOther)));
    EXPECT_FALSE(isAdmitted(followUpOf(kOther)));
    EXPECT_FALSE(isAdmitted(announceOf(kOther, 248, 248)));
    EXPECT_EQ(3U, qualityNow().ignoredFrames);
    EXPECT_TRUE(hasFlag(TSYN_FLAG_OTHER_MASTERS));
    EXPECT_EQ(kFirst, believed());
}

TEST_F(Masters, AnotherPortOfTheSameClockIsAnother) {
    isAdmitted(syncOf(kFirst));
    Bytes other = syncOf(kFirst);
    other[29] = 2;
    EXPECT_FALSE(isAdmitted(other));
}

TEST_F(Masters, OneIsBelievedUntilThreeSyncIntervalsAreSilent) {
    isAdmitted(syncOf(kFirst));
    pass(milliseconds(370));
    EXPECT_FALSE(isAdmitted(syncOf(kOther)));
    isAdmitted(syncOf(kFirst));
    pass(milliseconds(370));
    EXPECT_FALSE(isAdmitted(syncOf(kOther)));
    pass(milliseconds(10));
    EXPECT_TRUE(isAdmitted(syncOf(kOther)));
    EXPECT_EQ(kOther, believed());
    EXPECT_FALSE(hasFlag(TSYN_FLAG_OTHER_MASTERS));
    EXPECT_FALSE(isAdmitted(syncOf(kFirst)));
}

TEST_F(Masters, ASlowMasterHasThreeOfItsOwnIntervals) {
    Bytes slow = syncOf(kFirst);
    slow[33] = 0;
    isAdmitted(slow);
    pass(milliseconds(2900));
    EXPECT_FALSE(isAdmitted(syncOf(kOther)));
    pass(milliseconds(200));
    EXPECT_TRUE(isAdmitted(syncOf(kOther)));
}

TEST_F(Masters, TheFlagOfOthersEndsWhenTheyHaveLeft) {
    isAdmitted(syncOf(kFirst));
    isAdmitted(syncOf(kOther));
    for (int i = 0; i < 28; ++i) {
        pass(milliseconds(100));
        isAdmitted(syncOf(kFirst));
    }
    EXPECT_TRUE(hasFlag(TSYN_FLAG_OTHER_MASTERS));
    for (int i = 0; i < 3; ++i) {
        pass(milliseconds(100));
        isAdmitted(syncOf(kFirst));
    }
    EXPECT_FALSE(hasFlag(TSYN_FLAG_OTHER_MASTERS));
}

TEST_F(Masters, ABetterAnnounceIsFlaggedAndLoggedOnce) {
    isAdmitted(syncOf(kFirst));
    isAdmitted(announceOf(kFirst, 248, 248));
    isAdmitted(announceOf(kOther, 249, 1));
    EXPECT_FALSE(hasFlag(TSYN_FLAG_BETTER_MASTER)) << "priority1 goes before clockClass";
    isAdmitted(announceOf(kOther, 248, 247));
    isAdmitted(announceOf(kOther, 248, 247));
    EXPECT_TRUE(hasFlag(TSYN_FLAG_BETTER_MASTER));
    EXPECT_EQ(1, output_.count("Master bbbbbbbbbbbbbbbb announces itself better than "
                               "aaaaaaaaaaaaaaaa, which is believed\n"));
    EXPECT_EQ(kFirst, believed());
}

TEST_F(Masters, OfEqualOnesTheLowerIdentityIsBetter) {
    isAdmitted(syncOf(kOther));
    isAdmitted(announceOf(kOther, 248, 248));
    isAdmitted(announceOf(kFirst, 248, 248));
    EXPECT_TRUE(hasFlag(TSYN_FLAG_BETTER_MASTER));
}

TEST_F(Masters, ASyncThatIsRefusedKeepsNoGoodOneOut) {
    Bytes foreignDomain = syncOf(kFirst);
    foreignDomain[4] = 3;
    EXPECT_TRUE(isAdmitted(foreignDomain)) << "its handler counts it as rejected";
    EXPECT_TRUE(isAdmitted(syncOf(kOther)));
    EXPECT_EQ(kOther, believed());
}

TEST_F(Masters, AFollowUpOfNobodyIsNotHandled) {
    EXPECT_FALSE(isAdmitted(followUpOf(kFirst)));
    EXPECT_EQ(0U, qualityNow().ignoredFrames);
}

TEST_F(Masters, OnlyTheConfiguredOneIsBelieved) {
    TSynProfile profile = deployedWith({{"oneMaster", 1}});
    std::fill_n(profile.masterIdentity, 8, kOther);
    setProfile(profile);
    EXPECT_FALSE(isAdmitted(syncOf(kFirst)));
    EXPECT_EQ(1U, qualityNow().ignoredFrames);
    EXPECT_TRUE(isAdmitted(syncOf(kOther)));
    EXPECT_EQ(kOther, believed());
    pass(milliseconds(400));
    EXPECT_FALSE(isAdmitted(syncOf(kFirst)));
    EXPECT_EQ(0, believed()) << "the one configured is silent";
}

TEST_F(Masters, AMasterItselfBelievesNobody) {
    configure(masterConfig());
    EXPECT_TRUE(isAdmitted(syncOf(kFirst)));
    EXPECT_TRUE(isAdmitted(syncOf(kOther)));
    EXPECT_EQ(0, believed());
}

}  // namespace
