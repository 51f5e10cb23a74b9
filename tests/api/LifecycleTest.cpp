#include <dirent.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Texts = std::vector<std::string>;

/** True when every thread of the process whose name begins so has SIGUSR1 blocked. */
bool allBlockUserSignal(const std::string& namePrefix) {
    bool all = true;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        std::ifstream status(std::string("/proc/self/task/") + task->d_name + "/status");
        std::string word, name;
        unsigned long long blocked = 0;
        while (status >> word) {
            if (word == "Name:") {
                status >> name;
            } else if (word == "SigBlk:") {
                status >> std::hex >> blocked;
            }
        }
        if (name.rfind(namePrefix, 0) == 0) {
            all = all && (blocked >> (SIGUSR1 - 1) & 1) != 0;
        }
    }
    closedir(tasks);
    return all;
}

TEST(Start, TwiceReportsThatTheThreadsStillRun) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = masterConfig();
    ZebEthTSynInterface_Create(&config);
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    // At once, while the first start is still on its way.
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ("Threads are still running...", output.texts().back());
    EXPECT_TRUE(eventually([] { return daemonThreads().size() == 4; }));
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ(2, output.count(">Threads are still running...\n"));
    EXPECT_EQ(4U, daemonThreads().size());
    ZebEthTSynInterface_Destroy();
}

TEST(Start, AfterStopResumesWithoutNewThreads) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    const PeerSocket peer("tsm0peer");
    EXPECT_EQ(0, ZebEthTSynInterface_Stop());
    EXPECT_EQ(0, runningState);
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ(1, runningState);
    EXPECT_EQ(1, output.count(">Restarting threads ...\n"));
    EXPECT_EQ(1, output.count(">Creating and starting threads ...\n"));
    EXPECT_EQ(4U, daemonThreads().size());
    peer.drain();
    EXPECT_TRUE(peer.awaitType(kSync));
}

TEST(Start, AfterAnEarlyStopCountsAsARestart) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = masterConfig();
    ZebEthTSynInterface_Create(&config);
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    ZebEthTSynInterface_Stop();
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    EXPECT_EQ("Restarting threads ...", output.texts().back());
    EXPECT_TRUE(eventually([] { return daemonThreads().size() == 4; }));
    ZebEthTSynInterface_Destroy();
}

TEST(Stop, SilencesTheSenders) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    const PeerSocket peer("tsm0peer");
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_Stop();
    // One message may be on its way; four periods without another are silence.
    peer.receive(std::chrono::milliseconds(50));
    peer.drain();
    EXPECT_FALSE(peer.awaitType(kSync, std::chrono::milliseconds(500)));
}

TEST(Start, TakesOverBothNamesWithMoreThanOneArgument) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    DbgTraceLevel = 0;
    TSynInstanceConfig config = masterConfig("other0");
    config.argumentCount = 2;
    ZebEthTSynInterface_Create(&config);
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, "stack1", "tsm0"));
    EXPECT_TRUE(output.await(">Params: stack1 tsm0 -T -Xp\n"));
    EXPECT_TRUE(eventually([] { return daemonThreads().size() == 4; }));
    ZebEthTSynInterface_Destroy();
}

/** The names in the block after a Start that finds threads already made, which only stores. */
std::pair<std::string, std::string> namesAfterStart(unsigned int argumentCount, const char* stack,
                                                    const char* interfaceName) {
    TSynInstanceConfig config = masterConfig();
    config.argumentCount = argumentCount;
    ZebEthTSynInterface_Create(&config);
    ZebEthTSynInterface_Start(0, stack, interfaceName);
    const TSynInstanceConfig& stored = InterfaceDataManager::m_pInstance->block.cfg;
    return {std::string(stored.ethStackIdent, strnlen(stored.ethStackIdent, 192)),
            std::string(stored.interfaceName, strnlen(stored.interfaceName, 64))};
}

TEST(Start, StoresNamesOnlyAsArgumentCountAllowsAndCutsLongOnes) {
    using Names = std::pair<std::string, std::string>;
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_EQ((Names{"stack0", "tsm0"}), namesAfterStart(0, "stack1", "eth9"));
    EXPECT_EQ((Names{"stack0", "tsm0"}), namesAfterStart(1, "stack1", "eth9"));
    EXPECT_EQ((Names{"stack1", "eth9"}), namesAfterStart(2, "stack1", "eth9"));
    EXPECT_EQ((Names{"stack0", "eth9"}), namesAfterStart(2, nullptr, "eth9"));
    EXPECT_EQ((Names{"stack1", "tsm0"}), namesAfterStart(2, "stack1", nullptr));
    const std::string longName(500, 'x');
    EXPECT_EQ((Names{std::string(191, 'x'), std::string(63, 'x')}),
              namesAfterStart(2, longName.c_str(), longName.c_str()));
    EXPECT_EQ(0, InterfaceDataManager::m_pInstance->block.cfg.Domain);
}

TEST(Start, BlocksTheUserSignalInCallerAndDaemon) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(1, sigismember(&blocked, SIGUSR1));
    EXPECT_TRUE(allBlockUserSignal("TSyn_"));
}

TEST(Start, RunsARefusedConfiguration) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    TSynInstanceConfig config = masterConfig();
    config.VlanID = 5000;
    const RunningDaemon daemon(config, RunningDaemon::kMasterThreads);
    EXPECT_EQ(1, output.count(">Invalid parameter VlanID: 5000\n"));
    const auto frame = PeerSocket("tsm0peer").awaitType(kSync);
    ASSERT_TRUE(frame);
    EXPECT_EQ("8100138888f7", toHex(&frame->bytes[12], 6));
}

TEST(Start, MessagesCarryTheInterfaceIndexAsPortNumber) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    const auto frame = peer.awaitType(kPdelayReq);
    ASSERT_TRUE(frame);
    const unsigned index = if_nametoindex("tsm0");
    const unsigned char port[] = {static_cast<unsigned char>(index >> 8),
                                  static_cast<unsigned char>(index)};
    EXPECT_EQ("020000fffe000001" + toHex(port, 2), toHex(&frame->message()[20], 10));
}

/** A master whose first messages are out and whose next Sync is far away. Its senders wait then:
 *  one that waits for the other's transmission instead would outlive the other's cancellation. */
struct QuietMaster {
    QuietMaster() {
        EXPECT_TRUE(output.await(">Wrong configuration TxMode "));
        EXPECT_TRUE(peer.awaitType(kAnnounce));
        EXPECT_TRUE(eventually([] { return pthread_mutex_trylock(&mutexOutputThreader) == 0; }));
        pthread_mutex_unlock(&mutexOutputThreader);
    }

    static TSynInstanceConfig config() {
        TSynInstanceConfig config = masterConfig();
        config.syncInterval = 3600000.0;
        return config;
    }

    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer{"tsm0peer"};
    const RunningDaemon daemon{config(), RunningDaemon::kMasterThreads};
};

void expectDestroyTwiceEndsEveryThread(const StdoutCapture& output) {
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_TRUE(eventually([] { return daemonThreads().empty(); }));
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_EQ(2, output.count(">Destroying threads ...\n"));
    EXPECT_EQ(0, output.count(">*** Leaving "));  // the main thread is ended, too
}

TEST(Destroy, EndsEveryThreadOfAMaster) {
    const QuietMaster master;
    expectDestroyTwiceEndsEveryThread(master.output);
}

TEST(Destroy, EndsEveryThreadOfASlave) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    expectDestroyTwiceEndsEveryThread(output);
}

TEST(Destroy, EndsEveryThreadOfASlaveWithAFixedDelay) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    TSynInstanceConfig config = slaveConfig();
    config.PropagationDelay = 1500;
    const RunningDaemon daemon(config, 2);
    expectDestroyTwiceEndsEveryThread(output);
}

TEST(Destroy, BeforeStartAndTwiceDoesNoHarm) {
    const StdoutCapture output;
    DbgTraceLevel = 0;
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_EQ((Texts{"Destroying threads ...", "Destroying threads ..."}), output.texts());
    EXPECT_EQ("ALWAYS", output.lines()[0].level);
}

TEST(Destroy, AfterARoleChangeDoesNoHarm) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    const TSynInstanceConfig config = masterConfig();
    ZebEthTSynInterface_Create(&config);
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_TRUE(eventually([] { return daemonThreads().empty(); }));
}

TEST(Destroy, LeavesNothingForALaterStartToCreate) {
    const QuietMaster master;
    ZebEthTSynInterface_Destroy();
    ASSERT_TRUE(eventually([] { return daemonThreads().empty(); }));
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ("Threads are still running...", master.output.texts().back());
    ZebEthTSynInterface_Stop();
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ("Restarting threads ...", master.output.texts().back());
    EXPECT_TRUE(daemonThreads().empty());
}

/** Leaves the process as returning from main does while both senders wait for their periods. */
[[noreturn]] void exitWhileSendersWait() {
    const QuietMaster master;
    alarm(1);  // ends a process that hangs at its exit
    exit(testing::Test::HasFailure() ? 9 : 0);
}

TEST(HostDeathTest, ThatLeavesWhileAMastersSendersWaitEndsWithinASecond) {
    EXPECT_EXIT(exitWhileSendersWait(), testing::ExitedWithCode(0), "");
}

}  // namespace
