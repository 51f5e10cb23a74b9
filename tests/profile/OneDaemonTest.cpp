#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tests/profile/EventDaemon.h"
#include "tests/support/StdoutCapture.h"

namespace {

TSynProfile lockingProfile() {
    TSynProfile profile = eventProfile();
    profile.oneDaemon = 1;
    return profile;
}

/** What Start returns in another process, with its log on our standard output. */
int startInAnotherProcess(const TSynProfile& profile) {
    const pid_t child = fork();
    if (child == 0) {
        const TSynInstanceConfig config = masterConfig();
        DbgTraceLevel = 0;
        ZebEthTSynInterface_Create(&config);
        ZebEthTSynInterface_SetProfile(&profile);
        const int result = ZebEthTSynInterface_Start(0, nullptr, nullptr);
        _exit(result == 0 ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? -WEXITSTATUS(status) : -99;
}

/** Has the interface in a process of its own until it is told to end. */
class FirstDaemon {
public:
    FirstDaemon() {
        EXPECT_EQ(0, pipe(toOwner_));
        EXPECT_EQ(0, pipe(fromOwner_));
        owner = fork();
        if (owner == 0) {
            serve();
        }
        char answer = 0;
        EXPECT_EQ(1, read(fromOwner_[0], &answer, 1));
        EXPECT_EQ('0', answer);
    }
    void end() {
        if (owner > 0) {
            EXPECT_EQ(1, write(toOwner_[1], "x", 1));
            EXPECT_EQ(owner, waitpid(owner, nullptr, 0));
            owner = -1;
        }
    }
    ~FirstDaemon() { end(); }

    pid_t owner = -1;

private:
    [[noreturn]] void serve() const {
        const TSynProfile profile = lockingProfile();
        const TSynInstanceConfig config = masterConfig();
        DbgTraceLevel = 0;
        ZebEthTSynInterface_Create(&config);
        ZebEthTSynInterface_SetProfile(&profile);
        const bool started = ZebEthTSynInterface_Start(0, nullptr, nullptr) == 0;
        char order = 0;
        const bool told =
            write(fromOwner_[1], started ? "0" : "1", 1) == 1 && read(toOwner_[0], &order, 1) == 1;
        _exit(told ? 0 : 1);
    }

    int toOwner_[2]{};
    int fromOwner_[2]{};
};

class OneDaemon : public testing::Test {
protected:
    const StdoutCapture output;
    const RealTimeSandbox sandbox;
};

TEST_F(OneDaemon, TheSecondIsRefusedAndTellsTheFirst) {
    FirstDaemon first;
    const ProfiledDaemon second(masterConfig(), lockingProfile());
    EXPECT_EQ(-1, second.startResult);
    EXPECT_TRUE(output.await(">Start refused: process " + std::to_string(first.owner) +
                             " runs a daemon on tsm0\n"));
    EXPECT_TRUE(daemonThreads().empty());
}

TEST_F(OneDaemon, TheSecondMayStartWhenTheFirstHasEnded) {
    FirstDaemon first;
    const ProfiledDaemon second(masterConfig(), lockingProfile());
    first.end();
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ(std::vector<std::string>{"TSyn_Main"}, daemonThreads());
}

TEST_F(OneDaemon, DestroyGivesTheInterfaceBack) {
    const ProfiledDaemon first(masterConfig(), lockingProfile());
    ZebEthTSynInterface_Destroy();
    EXPECT_EQ(0, startInAnotherProcess(lockingProfile()));
}

TEST_F(OneDaemon, WithoutTheSwitchBothRun) {
    FirstDaemon first;
    const ProfiledDaemon second(masterConfig(), eventProfile());
    EXPECT_EQ(0, second.startResult);
}

}  // namespace
