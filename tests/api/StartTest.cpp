#include <gmock/gmock.h>
#include <net/if.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "api/DaemonState.h"
#include "tests/api/QuickKernel.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"

namespace {

const std::string kCreatingThreads = ">Creating and starting threads ...\n";
const std::string kStillRunning = ">Threads are still running...\n";
const std::string kRestarting = ">Restarting threads ...\n";
const std::string kLeaving = ">*** Leaving MainEntryPointSharedLibrary(";

void create(const TSynInstanceConfig& config) {
    DbgTraceLevel = 0;
    ZebEthTSynInterface_Create(&config);
}

int start() {
    return ZebEthTSynInterface_Start(0, nullptr, nullptr);
}

/** Ends the daemon before what its threads refer to goes. */
void destroy() {
    ZebEthTSynInterface_Destroy();
    eventually([] { return daemonThreads().empty(); }, std::chrono::seconds(2));
}

TEST(Start, EightAtOnceMakeOneDaemon) {
    constexpr int kStarts = 8;
    static thread_local bool inStart = false;
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    kernel.usleep = [&](useconds_t microseconds) -> std::optional<int> {
        // The one that creates sleeps until all others had their turn.
        if (microseconds == 1000000 && inStart) {
            EXPECT_TRUE(output.await(kStillRunning, kStarts - 1));
            return 0;
        }
        return std::nullopt;
    };
    create(masterConfig());
    std::atomic<int> results{0};
    std::vector<std::thread> hosts;
    hosts.reserve(kStarts);
    for (int i = 0; i < kStarts; ++i) {
        hosts.emplace_back([&] {
            inStart = true;
            results += start();
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_EQ(0, results);
    EXPECT_EQ(1, output.count(kCreatingThreads));
    EXPECT_TRUE(eventually([] { return daemonThreads().size() >= 4; }));
    EXPECT_EQ(4U, daemonThreads().size());
    destroy();
}

TEST(Start, StoppedWhileItIsUnderWayIsARestartForTheNext) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    kernel.usleep = [&](useconds_t microseconds) -> std::optional<int> {
        if (microseconds == 1000000 && kernel.isHost()) {
            ZebEthTSynInterface_Stop();
            std::thread([] { EXPECT_EQ(0, start()); }).join();
        }
        return 0;
    };
    create(slaveConfig());
    start();
    EXPECT_EQ(1, output.count(kCreatingThreads));
    EXPECT_EQ(1, output.count(kRestarting));
    EXPECT_TRUE(eventually([] { return daemonThreads().size() == 3; }));
    destroy();
}

TEST(Start, IsNoLongerPendingOnceItsThreadWasDestroyed) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    kernel.usleep = [&](useconds_t) -> std::optional<int> {
        return kernel.isHost() ? std::optional<int>(0) : std::nullopt;
    };
    create(masterConfig());
    start();
    ZebEthTSynInterface_Destroy();
    ASSERT_TRUE(eventually([] { return daemonThreads().empty(); }));
    EXPECT_EQ(0, runningState);
    start();
    EXPECT_EQ("Restarting threads ...", output.texts().back());
    EXPECT_EQ(1, runningState);
    EXPECT_TRUE(daemonThreads().empty());
}

TEST(Start, WithoutAThreadToBeHadLeavesNothingPending) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    int refusals = 2;
    kernel.pthreadCreate = [&]() -> std::optional<int> {
        return refusals-- > 0 ? std::optional<int>(EAGAIN) : std::nullopt;
    };
    create(slaveConfig());
    EXPECT_EQ(0, start());
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_EQ(0, start());
    EXPECT_TRUE(daemonThreads().empty());
    EXPECT_EQ(0, start());
    EXPECT_EQ(3, output.count(kCreatingThreads));
    EXPECT_EQ(0, output.count(kStillRunning));
    EXPECT_TRUE(eventually([] { return daemonThreads().size() == 3; }));
    destroy();
}

/** Which of the pumps, in the order of their creation, get no thread; the role as a master. */
struct Refused {
    bool master;
    std::vector<bool> pumps;
    std::vector<std::string> left;
};

class RefusedPumps : public testing::TestWithParam<Refused> {};

TEST_P(RefusedPumps, AreMissedByNobody) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    std::atomic<std::size_t> creations{0};
    kernel.pthreadCreate = [&]() -> std::optional<int> {
        const std::size_t pump = creations++ - 1;  // the main thread comes first
        return pump < GetParam().pumps.size() && GetParam().pumps[pump] ? std::optional<int>(EAGAIN)
                                                                        : std::nullopt;
    };
    create(GetParam().master ? masterConfig() : slaveConfig());
    start();
    ASSERT_TRUE(eventually([&] { return creations == GetParam().pumps.size() + 1; }));
    EXPECT_TRUE(eventually([] { return daemonThreads() == GetParam().left; }));
    if (GetParam().left.empty()) {
        EXPECT_TRUE(output.await(kLeaving));
    }
    ZebEthTSynInterface_Destroy();
    EXPECT_TRUE(eventually([] { return daemonThreads().empty(); }));
}

INSTANTIATE_TEST_SUITE_P(
    Start, RefusedPumps,
    testing::Values(
        Refused{true, {true, true, true}, {}},
        Refused{true, {false, true, false}, {"TSyn_MInp_tsm0", "TSyn_MSyn_tsm0", "TSyn_Main"}},
        Refused{true, {true, false, true}, {"TSyn_MAnn_tsm0", "TSyn_Main"}},
        Refused{false, {true, true}, {}},
        Refused{false, {false, true}, {"TSyn_Main", "TSyn_SInp_tsm0"}}));

class PortNumber : public testing::TestWithParam<std::pair<unsigned, const char*>> {};

TEST_P(PortNumber, IsTheLowHalfOfTheInterfaceIndex) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    QuickKernel kernel;
    kernel.ifNametoindex = [](const char*) { return GetParam().first; };
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    EXPECT_EQ(1, output.count(">Port index: " + std::to_string(GetParam().first & 0xFFFF) + "\n"));
    const auto frame = peer.awaitType(kSync);
    ASSERT_TRUE(frame);
    EXPECT_EQ(GetParam().second, toHex(&frame->message()[28], 2));
}

INSTANTIATE_TEST_SUITE_P(Start, PortNumber,
                         testing::Values(std::make_pair(0x10000U, "0000"),
                                         std::make_pair(0x30000U, "0000"),
                                         std::make_pair(0x12345U, "2345"),
                                         std::make_pair(0xFFFFU, "ffff")));

TEST(Start, ASlaveWithPortNumberZeroAsksForTheDelay) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    kernel.ifNametoindex = [](const char*) { return 0x10000U; };
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_EQ(1, output.count(">Port index: 0\n"));
}

TEST(Start, RunsOnlyOnceTheSignalsAreSettled) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    QuickKernel kernel;
    std::vector<useconds_t> sleeps;
    std::vector<int> running;
    int detached = -1;
    kernel.usleep = [&](useconds_t microseconds) -> std::optional<int> {
        if (microseconds < QuickKernel::kLong) {
            return std::nullopt;
        }
        if (!kernel.isHost() && detached < 0) {
            running.push_back(runningState);
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getdetachstate(&attributes, &detached);
            pthread_attr_destroy(&attributes);
        } else if (kernel.isHost()) {
            sleeps.push_back(microseconds);
        }
        return 0;
    };
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_EQ((std::vector<useconds_t>{1000000, 120757}), sleeps);
    EXPECT_EQ(std::vector<int>{0}, running);
    EXPECT_EQ(1, runningState);
    EXPECT_EQ(PTHREAD_CREATE_DETACHED, detached);
}

TEST(Start, AHostThatWaitsOnCondvarLearnsOfTheRolesEnd) {
    const Sandbox sandbox;
    const StdoutCapture output;
    QuickKernel kernel;
    std::mutex mutex;
    bool waiting = false;
    kernel.usleep = [&](useconds_t) {
        if (!kernel.isHost()) {
            eventually([&] {
                const std::lock_guard<std::mutex> lock(mutex);
                return waiting;
            });
        }
        return std::optional<int>(0);
    };
    std::atomic<bool> woken{false};
    std::thread host([&] {
        std::unique_lock<std::mutex> lock(mutex);
        waiting = true;
        woken = condvar.wait_for(lock, std::chrono::seconds(10)) == std::cv_status::no_timeout;
    });
    create(slaveConfig("absent0"));
    start();
    host.join();
    EXPECT_TRUE(woken);
    EXPECT_TRUE(output.await(kLeaving));
}

}  // namespace
