#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>

#include "profile/LoopSteps.h"
#include "tests/api/QuickKernel.h"
#include "tests/profile/EventDaemon.h"
#include "tests/support/PeerSocket.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

class EventLoop : public testing::Test {
protected:
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer{"tsm0peer"};
};

Clock::duration since(Clock::time_point start) {
    return Clock::now() - start;
}

TEST_F(EventLoop, StartsWithinFiftyMillisecondsAndSendsWithinAHundred) {
    const auto start = Clock::now();
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    EXPECT_LT(since(start), Milliseconds(50));
    const auto sync = peer.awaitType(kSync);
    ASSERT_TRUE(sync);
    EXPECT_LT(sync->when - start, Milliseconds(100));
    EXPECT_TRUE(peer.awaitType(kAnnounce, Milliseconds(100)));
}

TEST_F(EventLoop, FirstRequestOfASlaveLeavesAtOnce) {
    const auto start = Clock::now();
    const ProfiledDaemon daemon(slaveConfig(), eventProfile());
    const auto request = peer.awaitType(kPdelayReq);
    ASSERT_TRUE(request);
    EXPECT_LT(request->when - start, Milliseconds(100));
}

TEST_F(EventLoop, IsOneThread) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    EXPECT_EQ(std::vector<std::string>{"TSyn_Main"}, daemonThreads());
}

TEST_F(EventLoop, HoursOfSyncsDoNotDrift) {
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 1000.0;
    const ProfiledDaemon daemon(config, eventProfile());
    const auto first = peer.awaitType(kSync);
    ASSERT_TRUE(first);
    for (int i = 1; i <= 600; ++i) {
        const auto sync = peer.awaitType(kSync);
        ASSERT_TRUE(sync);
        const auto late = sync->when - first->when - std::chrono::seconds(i);
        ASSERT_LT(std::chrono::abs(late), Milliseconds(1)) << i;
    }
}

TEST_F(EventLoop, AnswersARequest) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    Bytes request(14 + 54, 0);
    const unsigned char header[] = {0x01, 0x80, 0xC2, 0,    0,    0x0E, 2,    0, 0,
                                    0,    0,    2,    0x88, 0xF7, 0x12, 0x02, 0, 54};
    std::copy(std::begin(header), std::end(header), request.begin());
    request[14 + 31] = 0x77;  // sequenceId
    ASSERT_TRUE(peer.send(request));
    const auto response = peer.awaitType(kPdelayResp, Milliseconds(100));
    ASSERT_TRUE(response);
    EXPECT_EQ(0x77, response->message()[31]);
}

/** An answer of that type to a request, with some time in it. */
Bytes answerTo(const Bytes& request, unsigned char type) {
    Bytes answer(14 + 54, 0);
    const unsigned char header[] = {0x01, 0x80, 0xC2, 0,    0,    0x0E, 2,    0, 0,
                                    0,    0,    2,    0x88, 0xF7, 0x10, 0x02, 0, 54};
    std::copy(std::begin(header), std::end(header), answer.begin());
    answer[14] = static_cast<unsigned char>(answer[14] | type);
    answer[14 + 29] = 1;
    std::copy_n(request.begin() + 30, 2, answer.begin() + 14 + 30);
    answer[14 + 39] = 1;
    std::copy_n(request.begin() + 20, 10, answer.begin() + 14 + 44);
    return answer;
}

TEST_F(EventLoop, ARequestTellsThePeriodThatItIsSentWith) {
    TSynProfile profile = eventProfile();
    profile.configuredLogInterval = 1;
    const ProfiledDaemon daemon(slaveConfig(), profile);
    auto request = peer.awaitType(kPdelayReq);
    bool toldLonger = false;
    for (int i = 0; i < 20 && !toldLonger; ++i) {
        ASSERT_TRUE(request && peer.send(answerTo(request->message(), 0x03)) &&
                    peer.send(answerTo(request->message(), 0x0A)));
        const unsigned char told = request->message()[33];
        const auto next = peer.awaitType(kPdelayReq);
        ASSERT_TRUE(next);
        const double seconds = std::chrono::duration<double>(next->when - request->when).count();
        ASSERT_NEAR(std::ldexp(1.0, told), seconds, 0.01) << i;
        toldLonger = told == 1;
        request = next;
    }
    EXPECT_TRUE(toldLonger);
}

int announcesBefore(const PeerSocket& peer, Clock::time_point end) {
    int announces = 0;
    while (const auto frame = peer.receive(std::chrono::duration_cast<Milliseconds>(
               std::max(end - Clock::now(), Clock::duration::zero())))) {
        announces += (frame->message()[0] & 0x0F) == kAnnounce ? 1 : 0;
    }
    return announces;
}

TEST_F(EventLoop, APortThatAnnouncesItselfHearsThreeAnnouncesAtOnceAndOnlyOnce) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kAnnounce));
    Bytes announce(14 + 64, 0);
    const unsigned char header[] = {0x01, 0x80, 0xC2, 0,    0,    0x0E, 2,    0, 0,
                                    0,    0,    2,    0x88, 0xF7, 0x1B, 0x02, 0, 64};
    std::copy(std::begin(header), std::end(header), announce.begin());
    ASSERT_TRUE(peer.send(announce));
    EXPECT_EQ(3, announcesBefore(peer, Clock::now() + Milliseconds(450)));
    ASSERT_TRUE(peer.awaitType(kAnnounce));
    ASSERT_TRUE(peer.send(announce));
    EXPECT_EQ(0, announcesBefore(peer, Clock::now() + Milliseconds(450)));
}

TEST_F(EventLoop, StopSilencesAndStartSendsAtOnce) {
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_Stop();
    while (peer.receive(Milliseconds(50))) {
        // A turn that had begun sends all of its messages.
    }
    EXPECT_FALSE(peer.receive(std::chrono::seconds(5)));
    const auto start = Clock::now();
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    const auto sync = peer.awaitType(kSync);
    ASSERT_TRUE(sync);
    EXPECT_LT(sync->when - start, Milliseconds(20));
}

TEST_F(EventLoop, SettingTheTimeSendsAtOnce) {
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 3600000.0;
    const ProfiledDaemon daemon(config, eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_SetHardTime(0, 1000, 0, 1);
    EXPECT_TRUE(peer.awaitType(kSync, std::chrono::seconds(1)));
}

/** Watches the wire while the host reads the card. */
struct WatchingKernel : QuickKernel {
    explicit WatchingKernel(const PeerSocket& peer) {
        clockGettime = [this, &peer](clockid_t clock, timespec*) -> std::optional<int> {
            if (clock < 0 && isHost() && isSetting) {
                ++readings;
                sentBefore = sentBefore || peer.awaitType(kSync, Milliseconds(50)).has_value();
            }
            return std::nullopt;
        };
    }
    std::atomic<bool> isSetting{false};
    std::atomic<int> readings{0};
    std::atomic<bool> sentBefore{false};
};

TEST_F(EventLoop, SendsAtOnceNotBeforeTheTimeIsSet) {
    WatchingKernel kernel(peer);
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 3600000.0;
    TSynProfile profile = eventProfile();
    profile.matchedStamps = 1;
    const ProfiledDaemon daemon(config, profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    kernel.isSetting = true;
    EXPECT_EQ(0, ZebEthTSynInterface_SetSoftTime(0, 4000000000, 0, 1));
    kernel.isSetting = false;
    EXPECT_EQ(1, kernel.readings);
    EXPECT_FALSE(kernel.sentBefore);
    EXPECT_TRUE(peer.awaitType(kSync, std::chrono::seconds(1)));
}

/** Counts what the loop waits for. */
struct CountingKernel : QuickKernel {
    CountingKernel() {
        recvmsg = [this](int, msghdr*, int flags) -> std::optional<ssize_t> {
            if (isHost() || (flags & MSG_ERRQUEUE) != 0) {
                return std::nullopt;
            }
            ++receptions;
            return failing ? std::optional<ssize_t>(refuse(EIO)) : std::nullopt;
        };
    }
    std::atomic<int> receptions{0};
    std::atomic<bool> failing{false};
};

TEST_F(EventLoop, ASocketThatGoesOnFailingIsLeftAloneForAWhile) {
    CountingKernel kernel;
    const ProfiledDaemon daemon(masterConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    kernel.failing = true;
    ASSERT_TRUE(peer.send(Bytes{0x01, 0x80, 0xC2, 0, 0, 0x0E, 2, 0, 0, 0, 0, 2, 0x88, 0xF7, 0x10,
                                2,    0,    54,   0, 0, 0,    0, 0, 0, 0, 0, 0, 0,    0,    0,
                                0,    0,    0,    0, 0, 0,    0, 0, 0, 0, 0, 0, 0,    0,    0,
                                0,    0,    0,    0, 0, 0,    0, 0, 0, 0, 0, 0, 0,    0,    0}));
    EXPECT_TRUE(eventually([&] { return kernel.receptions > 1; }));
    const int before = kernel.receptions;
    peer.drain();
    const auto start = Clock::now();
    while (since(start) < std::chrono::seconds(10)) {
        ASSERT_TRUE(peer.awaitType(kSync));
    }
    EXPECT_LE(kernel.receptions - before, 110);
}

TEST(EventLoopBetweenCards, AFloodIsTakenInBatches) {
    const StdoutCapture output;
    const CardSandbox sandbox("tsm0", "phc=0; tsm0peer phc=1");
    const PeerSocket peer("tsm0peer");
    constexpr int kFrames = 2000;
    CountingKernel kernel;
    TSynProfile profile = eventProfile();
    profile.matchedStamps = 1;
    const ProfiledDaemon daemon(masterConfig(), profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    Bytes announce(14 + 64, 0);
    const unsigned char header[] = {0x01, 0x80, 0xC2, 0,    0,    0x0E, 2,    0, 0,
                                    0,    0,    2,    0x88, 0xF7, 0x1B, 0x02, 0, 64};
    std::copy(std::begin(header), std::end(header), announce.begin());
    const int before = kernel.receptions;
    for (int i = 0; i < kFrames; ++i) {
        ASSERT_TRUE(peer.send(announce));
        usleep(100);
    }
    // Each batch ends with a look at an empty queue.
    EXPECT_TRUE(eventually([&] { return kernel.receptions - before >= kFrames; }));
    EXPECT_LE(kernel.receptions - before, kFrames + kFrames / 4);
}

TEST_F(EventLoop, FramesOfItsOwnDoNotWakeIt) {
    CountingKernel kernel;
    TSynProfile profile = eventProfile();
    profile.matchedStamps = 1;
    const ProfiledDaemon daemon(masterConfig(), profile);
    ASSERT_TRUE(peer.awaitType(kSync));
    const int before = kernel.receptions;
    for (int i = 0; i < 80; ++i) {
        ASSERT_TRUE(peer.awaitType(kSync));
    }
    EXPECT_LE(kernel.receptions - before, 8);
}

Bytes anyFollowUp() {
    Bytes followUp(14 + 76, 0);
    const unsigned char header[] = {0x01, 0x80, 0xC2, 0,    0,    0x0E, 2,    0, 0,
                                    0,    0,    2,    0x88, 0xF7, 0x18, 0x02, 0, 76};
    std::copy(std::begin(header), std::end(header), followUp.begin());
    return followUp;
}

TEST_F(EventLoop, ASlaveTellsOnItsOwnThatTheMasterIsSilent) {
    static std::atomic<int> ticks;
    const ProfiledDaemon daemon(slaveConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kPdelayReq));
    loopSteps.tick = [] { ++ticks; };
    ASSERT_TRUE(peer.send(anyFollowUp()));
    EXPECT_TRUE(eventually([] { return ticks > 2; }, std::chrono::seconds(4)));
}

TEST_F(EventLoop, ASlaveTellsOnItsOwnThatNothingOfTheMasterCanBeUsed) {
    static std::atomic<int> ticks;
    const ProfiledDaemon daemon(slaveConfig(), eventProfile());
    ASSERT_TRUE(peer.awaitType(kPdelayReq));
    loopSteps.tick = [] { ++ticks; };
    loopSteps.usedPairs = [] { return 7U; };
    EXPECT_TRUE(eventually(
        [this] {
            EXPECT_TRUE(peer.send(anyFollowUp()));
            return ticks > 0;
        },
        std::chrono::seconds(4)));
}

}  // namespace
