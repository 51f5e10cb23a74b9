#include <gtest/gtest.h>

#include <algorithm>

#include "api/DaemonState.h"
#include "tests/support/Daemon.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/** True sending instants of the last Syncs, oldest first. */
std::vector<std::uint64_t> syncInstants(std::size_t count) {
    std::vector<std::uint64_t> instants;
    for (const auto& frame : virtual_i210::latestEventFrames(100)) {
        if (frame.messageType == kSync) {
            instants.push_back(frame.rawNs);
        }
    }
    std::sort(instants.begin(), instants.end());
    if (instants.size() > count) {
        instants.erase(instants.begin(), instants.end() - static_cast<long>(count));
    }
    return instants;
}

TEST(Senders, ASyncFollowsEvery125Milliseconds) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    for (int i = 0; i < 9; ++i) {
        ASSERT_TRUE(peer.awaitType(kSync));
    }
    const auto instants = syncInstants(9);
    ASSERT_EQ(9U, instants.size());
    for (std::size_t i = 1; i < 9; ++i) {
        EXPECT_GE(instants[i] - instants[i - 1], 124900000U);  // raw against steered clock
    }
    EXPECT_LT(instants[8] - instants[0], 2 * 8 * 125000000U);
}

TEST(Senders, AnAnnounceFollowsEverySecond) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    const auto first = peer.awaitType(kAnnounce);
    const auto second = peer.awaitType(kAnnounce);
    ASSERT_TRUE(first && second);
    EXPECT_GE(second->when - first->when, Milliseconds(800));
    EXPECT_LT(second->when - first->when, Milliseconds(3000));
}

struct NotifyingCall {
    const char* name;
    int (*call)(unsigned char notify);
};

void PrintTo(const NotifyingCall& call, std::ostream* stream) {
    *stream << call.name;
}

class NotifyingSetter : public testing::TestWithParam<NotifyingCall> {};

TEST_P(NotifyingSetter, MakesEverySenderTransmitAtOnce) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 3600000.0;
    const RunningDaemon daemon(config, RunningDaemon::kMasterThreads);
    ASSERT_TRUE(peer.awaitType(kSync));
    ASSERT_TRUE(peer.awaitType(kAnnounce));
    peer.drain();
    EXPECT_EQ(0, GetParam().call(0));
    EXPECT_FALSE(peer.awaitType(kSync, Milliseconds(300)));
    ASSERT_TRUE(peer.awaitType(kAnnounce));
    // The next Announce is a second away now; wake-ups that meet a transmission are lost.
    const Clock::time_point woken = Clock::now();
    ASSERT_TRUE(eventually([] { return pthread_mutex_trylock(&mutexOutputThreader) == 0; }));
    pthread_mutex_unlock(&mutexOutputThreader);
    EXPECT_EQ(0, GetParam().call(1));
    const auto first = peer.receive();
    ASSERT_TRUE(first);
    const auto announce =
        first->ptpType() == kAnnounce ? first : peer.awaitType(kAnnounce, Milliseconds(2000));
    ASSERT_TRUE(announce);
    EXPECT_LT(announce->when - woken, Milliseconds(900));
    EXPECT_TRUE(first->ptpType() == kSync || peer.awaitType(kSync));
}

TEST_P(NotifyingSetter, MakesASlaveAskForTheDelayAtOnce) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    TSynInstanceConfig config = slaveConfig();
    config.syncInterval = 3600000.0;
    const RunningDaemon daemon(config, RunningDaemon::kSlaveThreads);
    ASSERT_TRUE(peer.awaitType(kPdelayReq));
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(0, GetParam().call(1));
        return peer.awaitType(kPdelayReq, Milliseconds(100)).has_value();
    }));
}

TEST(Senders, AreWokenBeforeTheHardwareClockIsSet) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    KernelSeam kernel;
    bool syncWithTheOldTime = false;
    kernel.clockSettime = [&](clockid_t, const timespec* time) {
        syncWithTheOldTime =
            time->tv_sec == 1700000000 && peer.awaitType(kSync, Milliseconds(2000)).has_value();
        return 0;
    };
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 3600000.0;
    const RunningDaemon daemon(config, RunningDaemon::kMasterThreads);
    ASSERT_TRUE(output.await(">Wrong configuration TxMode "));
    peer.drain();
    EXPECT_EQ(0, ZebEthTSynInterface_SetHardTime(0, 1700000000, 0, 1));
    EXPECT_TRUE(syncWithTheOldTime);
}

int setHardTime(unsigned char notify) {
    return ZebEthTSynInterface_SetHardTime(0, 1700000000, 0, notify);
}

int setSoftTime(unsigned char notify) {
    return ZebEthTSynInterface_SetSoftTime(0, 1700000000, 0, notify);
}

int setTime(unsigned char notify) {
    return ZebEthTSynInterface_SetTime(0, 1700000000, 0, notify, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Senders, NotifyingSetter,
                         testing::Values(NotifyingCall{"SetHardTime", setHardTime},
                                         NotifyingCall{"SetSoftTime", setSoftTime},
                                         NotifyingCall{"SetTime", setTime}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
