#include <chrono>
#include <string>

#include "tests/profile/EventDaemon.h"
#include "tests/support/PeerSocket.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Milliseconds = std::chrono::milliseconds;

/** With the event loop and with the threads of deployed nodes. */
class StartAgain : public testing::TestWithParam<int> {
protected:
    StartAgain() {
        profile.eventPumps = static_cast<unsigned char>(GetParam());
        profile.followLink = profile.eventPumps;
    }

    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer{"tsm0peer"};
    TSynProfile profile = eventProfile();
};

TEST_P(StartAgain, DestroyLeavesNoThreadBehind) {
    const ProfiledDaemon daemon(masterConfig(), profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_Destroy();
    EXPECT_EQ(std::vector<std::string>{}, daemonThreads());
    peer.drain();
    EXPECT_FALSE(peer.receive(std::chrono::seconds(2)));
}

TEST_P(StartAgain, StartAfterDestroyServesAgainAndAgain) {
    const ProfiledDaemon daemon(masterConfig(), profile);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(peer.awaitType(kSync, Milliseconds(500))) << i;
        ZebEthTSynInterface_Destroy();
        peer.drain();
        ASSERT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    }
    EXPECT_TRUE(peer.awaitType(kSync, Milliseconds(100)));
}

TEST_P(StartAgain, TheNextDaemonMayHaveTheOtherRole) {
    const ProfiledDaemon daemon(masterConfig(), profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_Destroy();
    const TSynInstanceConfig config = slaveConfig();
    ZebEthTSynInterface_Create(&config);
    ASSERT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
    peer.drain();
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    EXPECT_TRUE(peer.awaitType(kPdelayReq, Milliseconds(100)));
    EXPECT_FALSE(peer.awaitType(kSync, std::chrono::seconds(1)));
}

TEST_P(StartAgain, DestroyRightAfterStartEndsToo) {
    const ProfiledDaemon daemon(masterConfig(), profile);
    ZebEthTSynInterface_Destroy();
    EXPECT_EQ(std::vector<std::string>{}, daemonThreads());
}

TEST_P(StartAgain, RestartAfterStopSendsAtOnce) {
    const ProfiledDaemon daemon(masterConfig(), profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_Stop();
    while (peer.receive(Milliseconds(300))) {
    }
    const auto start = std::chrono::steady_clock::now();
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    const auto sync = peer.awaitType(kSync);
    ASSERT_TRUE(sync);
    EXPECT_LT(sync->when - start, Milliseconds(50));
}

INSTANTIATE_TEST_SUITE_P(Pumps, StartAgain, testing::Values(0, 1));

}  // namespace
