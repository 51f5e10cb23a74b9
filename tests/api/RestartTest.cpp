#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>

#include "api/DaemonState.h"
#include "api/MessagePumps.h"
#include "tests/api/QuickKernel.h"
#include "tests/support/Daemon.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Milliseconds = std::chrono::milliseconds;

/** A master whose Sync comes once an hour, after its first Sync and Announce. */
class RestartedMaster {
public:
    RestartedMaster() {
        EXPECT_TRUE(output.await(">Wrong configuration TxMode "));
        EXPECT_TRUE(peer.awaitType(kAnnounce));
    }

    /** Stops it and waits until both senders poll for the restart. */
    void pause() {
        ZebEthTSynInterface_Stop();
        EXPECT_TRUE(eventually([&] {
            wakeSenders();
            return syncPolls_ > 0 && announcePolls_ > 0;
        }));
    }

    /** Starts it again and waits until both senders have left their polls. */
    void resume() {
        ZebEthTSynInterface_Start(0, nullptr, nullptr);
        int before = -1;
        EXPECT_TRUE(eventually([&] {
            const int polls = syncPolls_ + announcePolls_;
            const bool settled = polls == before;
            before = polls;
            return settled;
        }));
    }

private:
    static TSynInstanceConfig config() {
        TSynInstanceConfig config = masterConfig();
        config.syncInterval = 3600000.0;
        return config;
    }

    /** Counts the polls of paused senders. */
    struct CountingKernel : QuickKernel {
        CountingKernel(std::atomic<int>& syncs, std::atomic<int>& announces) {
            usleep = [&](useconds_t microseconds) {
                const std::string name = microseconds == 100 ? ownThreadName() : "";
                syncs += name == "TSyn_MSyn_tsm0" ? 1 : 0;
                announces += name == "TSyn_MAnn_tsm0" ? 1 : 0;
                return microseconds >= kLong ? std::optional<int>(0) : std::nullopt;
            };
        }
    };

    std::atomic<int> syncPolls_{0}, announcePolls_{0};

public:
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer{"tsm0peer"};

private:
    const CountingKernel kernel_{syncPolls_, announcePolls_};

public:
    const RunningDaemon daemon{config(), RunningDaemon::kMasterThreads};
};

/** The same once more, since two cancelled threads race here. */
class RestartRound : public testing::TestWithParam<int> {};

TEST_P(RestartRound, DestroyEndsSendersThatWaitForTheSameMutex) {
    RestartedMaster master;
    master.pause();
    master.resume();
    ZebEthTSynInterface_Destroy();
    EXPECT_TRUE(eventually([] { return daemonThreads().empty(); }, std::chrono::seconds(1)));
}

INSTANTIATE_TEST_SUITE_P(Restart, RestartRound, testing::Range(0, 20));

TEST(Restart, SendersWaitWithTheFirstMutexAfterAPause) {
    RestartedMaster master;
    master.pause();
    pthread_mutex_lock(&th_mutex[kAnnounce]);
    master.peer.drain();
    master.resume();
    EXPECT_TRUE(master.peer.awaitType(kAnnounce, std::chrono::seconds(5)));
    // From its transmission on it waits with the mutex of its own type.
    master.peer.drain();
    EXPECT_FALSE(master.peer.awaitType(kAnnounce, Milliseconds(1500)));
    pthread_mutex_unlock(&th_mutex[kAnnounce]);
    EXPECT_TRUE(master.peer.awaitType(kAnnounce));
}

TEST(Senders, TheFirstMessagesOfAMasterLeaveAtOnce) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const QuickKernel kernel;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    std::map<int, std::chrono::steady_clock::time_point> first;  // in whichever order
    while (first.count(kSync) == 0 || first.count(kAnnounce) == 0) {
        const auto frame = peer.receive(std::chrono::seconds(20));
        ASSERT_TRUE(frame);
        first.emplace(frame->ptpType(), frame->when);
    }
    EXPECT_LT(first[kAnnounce] - first[kSync], Milliseconds(900));
}

TEST(Senders, AnIntervalThatNoCountHoldsIsTheLongestPeriod) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const QuickKernel kernel;
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 1e300;
    const RunningDaemon daemon(config, RunningDaemon::kMasterThreads);
    EXPECT_TRUE(output.await(">tdata_m -> idelay: 2147483647\n"));
}

}  // namespace
