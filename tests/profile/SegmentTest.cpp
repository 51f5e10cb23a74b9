#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tests/profile/EventDaemon.h"
#include "tests/support/PeerSocket.h"
#include "tests/support/StdoutCapture.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kSegment = "/dev/shm/tsm0";

TSynProfile requiringProfile() {
    TSynProfile profile = eventProfile();
    profile.oneDaemon = 1;
    profile.segmentMode = 0644;
    profile.segmentRequired = 1;
    return profile;
}

class Segment : public testing::Test {
protected:
    const StdoutCapture output;
    const StdoutCapture errors{STDERR_FILENO};
    const CardSandbox sandbox;
    const PeerSocket peer{"tsm0peer"};
};

TEST_F(Segment, OfAnotherUserKeepsStartFromRunning) {
    std::ofstream(kSegment).close();
    constexpr uid_t kAnother = 1234;
    if (chown(kSegment, kAnother, kAnother) != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    const ProfiledDaemon daemon(masterConfig(), requiringProfile());
    EXPECT_EQ(-1, daemon.startResult);
    EXPECT_EQ(1, output.count("No time can be published in /dev/shm/tsm0, which belongs to uid "
                              "1234: it is another user's; remove it or start as its owner\n"));
    EXPECT_TRUE(daemonThreads().empty());
}

TEST_F(Segment, ThatCannotBeOpenedKeepsStartFromRunningUntilItCan) {
    ASSERT_EQ(0, mkdir(kSegment, 0700));
    const ProfiledDaemon daemon(masterConfig(), requiringProfile());
    EXPECT_EQ(-1, daemon.startResult);
    EXPECT_EQ(1, output.count("/dev/shm/tsm0, which belongs to uid"));
    EXPECT_EQ(1, output.count("shm_open: Invalid argument; remove it"));
    EXPECT_EQ("", errors.text());
    ASSERT_EQ(0, rmdir(kSegment));
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_TRUE(peer.awaitType(kSync));
}

TEST_F(Segment, ThatIsLostLaterIsToldOnce) {
    const ProfiledDaemon daemon(masterConfig(), requiringProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    ASSERT_EQ(0, unlink(kSegment));
    ASSERT_EQ(0, mkdir(kSegment, 0700));
    EXPECT_EQ(nullptr, OSipc::instance("another"));
    EXPECT_EQ(nullptr, OSipc::instance("another"));
    EXPECT_EQ(1, output.count("No time can be published in /dev/shm/tsm0"));
    EXPECT_EQ("", errors.text());
}

TEST_F(Segment, ThatIsNotRequiredIsTriedWithEachMessage) {
    ASSERT_EQ(0, mkdir(kSegment, 0700));
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    EXPECT_EQ(0, daemon.startResult);
    EXPECT_TRUE(errors.await("shm_open: Invalid argument\n", 2));
}

unsigned int modeOfSegment() {
    struct stat status {};
    EXPECT_EQ(0, stat(kSegment, &status));
    return status.st_mode & 0777;
}

TEST_F(Segment, HasTheModeOfTheProfileWhateverTheMask) {
    const mode_t before = umask(0077);
    TSynProfile profile = eventProfile();
    profile.segmentMode = 0644;
    const ProfiledDaemon daemon(masterConfig(), profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    EXPECT_EQ(0644U, modeOfSegment());
    EXPECT_EQ(0077U, umask(before));
}

TEST_F(Segment, IsEverybodysUnlessSet) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    EXPECT_EQ(0777U, modeOfSegment());
}

}  // namespace
