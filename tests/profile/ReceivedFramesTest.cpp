#include <gtest/gtest.h>

#include "ptp/ProtocolSteps.h"
#include "tests/profile/Profiled.h"

namespace {

bool isAdmittedUnstamped(Bytes message) {
    return protocolSteps.admits(message.data(), static_cast<unsigned int>(message.size()), 0);
}

TEST(UnstampedFrames, OfEventsAreDroppedAndCounted) {
    setProfile(deployedWith({{"receiveStampRequired", 1}}));
    EXPECT_FALSE(isAdmittedUnstamped(messageOf(0, 44, kPeer)));
    EXPECT_FALSE(isAdmittedUnstamped(messageOf(2, 54, kPeer)));
    EXPECT_FALSE(isAdmittedUnstamped(messageOf(3, 54, kPeer)));
    EXPECT_EQ(3U, qualityNow().unstampedFrames);
}

TEST(UnstampedFrames, OfGeneralMessagesNeedNoStamp) {
    setProfile(deployedWith({{"receiveStampRequired", 1}}));
    EXPECT_TRUE(isAdmittedUnstamped(messageOf(8, 76, kPeer)));
    EXPECT_TRUE(isAdmittedUnstamped(messageOf(10, 54, kPeer)));
    EXPECT_TRUE(isAdmittedUnstamped(messageOf(11, 76, kPeer)));
    EXPECT_EQ(0U, qualityNow().unstampedFrames);
}

TEST(UnstampedFrames, AreHandledByDeployedNodes) {
    setProfile(deployedWith({}));
    EXPECT_TRUE(isAdmittedUnstamped(messageOf(0, 44, kPeer)));
    EXPECT_EQ(0U, qualityNow().unstampedFrames);
}

TEST(ShortFrames, OfEveryLengthAndTypeAreSafeAndNotHandled) {
    setProfile(deployedWith({{"oneMaster", 1},
                             {"soleAnswer", 1},
                             {"receiveStampRequired", 1},
                             {"answersPerSecond", 1},
                             {"portTableLimit", 8}}));
    for (unsigned char type = 0; type < 16; ++type) {
        for (std::size_t length = 0; length < 44; ++length) {
            Bytes message = messageOf(type, 44, kPeer);
            message.resize(length);
            message.shrink_to_fit();
            EXPECT_FALSE(isAdmitted(message)) << int{type} << " " << length;
        }
    }
}

TEST(ShortFrames, OfALengthBelowTheirTypeAreNotHandled) {
    setProfile(deployedWith({{"receiveStampRequired", 1}}));
    Bytes claims = messageOf(3, 54, kPeer);
    EXPECT_TRUE(isAdmitted(claims));
    claims[3] = 53;
    EXPECT_FALSE(isAdmitted(claims));
    claims[3] = 55;
    EXPECT_FALSE(isAdmitted(claims)) << "one byte did not come";
}

TEST(MinorVersion, IsTakenOutOfAReceivedMessage) {
    Bytes message = messageOf(0, 44, kPeer);
    message[1] = 0x12;
    setProfile(deployedWith({{"anyMinorVersion", 1}}));
    EXPECT_TRUE(protocolSteps.admits(message.data(), 44, 1));
    EXPECT_EQ(2, message[1]);
}

TEST(RateOffset, IsReadAsSigned) {
    setProfile(deployedWith({}));
    EXPECT_GT(protocolSteps.masterRateRatio(0xFFFFFFFF), 1.0019L);
    setProfile(deployedWith({{"signedRateOffset", 1}}));
    EXPECT_EQ(1 - 1 / 2199023255552.0L, protocolSteps.masterRateRatio(0xFFFFFFFF));
    EXPECT_EQ(1 + 1 / 2199023255552.0L, protocolSteps.masterRateRatio(1));
}

}  // namespace
