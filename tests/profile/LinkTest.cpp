#include <chrono>

#include "tests/profile/EventDaemon.h"
#include "tests/support/PeerSocket.h"
#include "tests/support/StdoutCapture.h"

namespace {

class Link : public testing::Test {
protected:
    static void ip(std::vector<std::string> words) {
        words.insert(words.begin(), "ip");
        Sandbox::run(words);
    }

    const StdoutCapture output;
    const RealTimeSandbox sandbox;
};

TEST_F(Link, DownIsSilentAndUpSendsAtOnce) {
    const PeerSocket peer("tsm0peer");
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 3600000.0;
    const ProfiledDaemon daemon(config, eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    ip({"link", "set", "tsm0", "down"});
    ASSERT_TRUE(output.await(">The link of tsm0 is down\n"));
    peer.drain();
    ip({"link", "set", "tsm0", "up"});
    EXPECT_TRUE(peer.awaitType(kSync, std::chrono::seconds(5)));
}

TEST_F(Link, WithoutACarrierNothingIsTried) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ip({"link", "set", "tsm0peer", "down"});
    ASSERT_TRUE(output.await(">The link of tsm0 is down\n"));
    ip({"link", "set", "tsm0peer", "up"});
    EXPECT_TRUE(output.await(">The link of tsm0 is up\n"));
    const PeerSocket peer("tsm0peer");
    EXPECT_TRUE(peer.awaitType(kSync));
}

TEST_F(Link, AnInterfaceMadeAnewIsSetUpAgain) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(output.await(">Starting as Master"));
    ip({"link", "delete", "tsm0"});
    ASSERT_TRUE(output.await(">The link of tsm0 is down\n"));
    ip({"link", "add", "tsm0", "type", "veth", "peer", "name", "tsm0peer"});
    ip({"link", "set", "tsm0peer", "up"});
    const PeerSocket peer("tsm0peer");
    ip({"link", "set", "tsm0", "up"});
    ASSERT_TRUE(output.await(">The link of tsm0 is up\n"));
    EXPECT_TRUE(peer.awaitType(kSync));
    EXPECT_TRUE(peer.awaitType(8));  // its transmit time was told
}

TEST_F(Link, AnInterfaceThatComesLaterIsServed) {
    ip({"link", "delete", "tsm0"});
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(output.await(">The link of tsm0 is down\n"));
    ip({"link", "add", "tsm0", "type", "veth", "peer", "name", "tsm0peer"});
    ip({"link", "set", "tsm0peer", "up"});
    const PeerSocket peer("tsm0peer");
    ip({"link", "set", "tsm0", "up"});
    EXPECT_TRUE(peer.awaitType(kSync));
}

}  // namespace
