#include "api/MessagePumps.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "api/DaemonState.h"
#include "tests/api/QuickKernel.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int kOddType = 5;
const std::string kUnknown = ">Unknown message ...\n";

/** A message of a type that no pump sends; every attempt shows as one log line. */
class OddMessage final : public PTPMessage {
public:
    int getMsgNumericType() override { return kOddType; }
    unsigned int processIncoming() override { return 0; }
};

/** An output pump of its own, without a network. */
class OddPump {
public:
    explicit OddPump(int periodMs) : record_{nullptr, &message_, &cvout, periodMs} {
        seam_.usleep = [this](useconds_t microseconds) -> std::optional<int> {
            idlePolls_ += microseconds == 100 ? 1 : 0;
            return std::nullopt;
        };
        pthread_create(&thread_, nullptr, OutputThreader, &record_);
    }
    ~OddPump() {
        pthread_cancel(thread_);
        pthread_join(thread_, nullptr);
    }
    OddPump(const OddPump&) = delete;
    OddPump& operator=(const OddPump&) = delete;

    /** Waits until the pump polls runningState again and again. */
    bool awaitIdle() {
        const int before = idlePolls_;
        return eventually([&] {
            cv.notify_all();
            return idlePolls_ > before + 2;
        });
    }

    /** Waits until the pump polls of its own accord, when its wait is over. */
    bool awaitPeriodsEnd() {
        return eventually([&] { return idlePolls_ > 2; });
    }

    const StdoutCapture output;

private:
    KernelSeam seam_;
    OddMessage message_;
    OutputPumpRecord record_;
    std::atomic<int> idlePolls_{0};
    pthread_t thread_{};
};

TEST(OutputPump, SendsAtOnceWhenItStartsRunning) {
    runningState = 1;
    const OddPump pump(3600000);
    EXPECT_TRUE(pump.output.await(kUnknown));
}

TEST(OutputPump, ReportsAnUnknownTypeEachPeriodAndGoesOn) {
    runningState = 1;
    const OddPump pump(20);
    EXPECT_TRUE(pump.output.await(kUnknown, 4));
    EXPECT_EQ("ERROR", pump.output.lines().at(0).level);
    EXPECT_EQ("OutputThreader", pump.output.lines().at(0).function);
}

TEST(OutputPump, WaitsAFullPeriodBetweenMessages) {
    runningState = 1;
    const OddPump pump(200);
    ASSERT_TRUE(pump.output.await(kUnknown, 3));
    const auto lines = pump.output.lines();
    for (std::size_t i = 1; i < 3; ++i) {
        const long long gap = (lines[i].seconds - lines[i - 1].seconds) * 1000000000 +
                              lines[i].nanoseconds - lines[i - 1].nanoseconds;
        EXPECT_GE(gap, 199000000);  // the log shows the wall clock, the period the monotonic one
    }
}

TEST(OutputPump, StaysIdleUntilItRuns) {
    OddPump pump(1);
    EXPECT_TRUE(pump.awaitIdle());
    EXPECT_EQ(0, pump.output.count(kUnknown));
    runningState = 1;
    EXPECT_TRUE(pump.output.await(kUnknown));
}

TEST(OutputPump, WaitsAPeriodBeforeTheFirstMessageAfterARestart) {
    runningState = 1;
    OddPump pump(300);
    ASSERT_TRUE(pump.output.await(kUnknown));
    __atomic_store_n(&runningState, 0, __ATOMIC_RELAXED);
    ASSERT_TRUE(pump.awaitIdle());
    const int before = pump.output.count(kUnknown);
    const Clock::time_point restarted = Clock::now();
    __atomic_store_n(&runningState, 1, __ATOMIC_RELAXED);
    ASSERT_TRUE(pump.output.await(kUnknown, before + 1));
    EXPECT_GE(Clock::now() - restarted, Milliseconds(300));
}

TEST(OutputPump, AStopDuringTheWaitSendsNothing) {
    runningState = 1;
    OddPump pump(300);
    ASSERT_TRUE(pump.output.await(kUnknown));
    __atomic_store_n(&runningState, 0, __ATOMIC_RELAXED);
    EXPECT_TRUE(pump.awaitPeriodsEnd());
    EXPECT_EQ(1, pump.output.count(kUnknown));
}

TEST(OutputPump, WaitsWithTheFirstMutexAfterAnUnknownMessage) {
    runningState = 1;
    pthread_mutex_lock(&th_mutex[kOddType]);
    const OddPump pump(20);
    EXPECT_TRUE(pump.output.await(kUnknown, 3));
}

TEST(OutputPump, ANotificationEndsTheWait) {
    runningState = 1;
    const OddPump pump(3600000);
    ASSERT_TRUE(pump.output.await(kUnknown));
    EXPECT_TRUE(eventually([&] {
        cv.notify_all();
        return pump.output.count(kUnknown) >= 2;
    }));
}

TEST(OutputPump, ALongPeriodDoesNotOverflow) {
    runningState = 1;
    const OddPump pump(2147483647);
    ASSERT_TRUE(pump.output.await(kUnknown));
    EXPECT_FALSE(pump.output.await(kUnknown, 2, Milliseconds(300)));
}

/** A message whose sending never gets further than its type. */
class StuckMessage final : public PTPMessage {
public:
    int getMsgNumericType() override {
        reached = true;
        for (;;) {
            pause();
        }
    }
    unsigned int processIncoming() override { return 0; }

    std::atomic<bool> reached{false};
};

TEST(OutputPump, AMutexHeldWhenItIsCancelledStaysLocked) {
    runningState = 1;
    StuckMessage message;
    OutputPumpRecord record{nullptr, &message, &cvout, 1000};
    pthread_t thread{};
    pthread_create(&thread, nullptr, OutputThreader, &record);
    ASSERT_TRUE(eventually([&] { return message.reached.load(); }));
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutexOutputThreader));
}

void* lockForGood(void* mutex) {
    pthread_mutex_lock(static_cast<pthread_mutex_t*>(mutex));
    return nullptr;
}

/** Leaves a mutex in the state that refuses every lock. */
void makeUnusable(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    pthread_t owner{};
    pthread_create(&owner, nullptr, lockForGood, &mutex);
    pthread_join(owner, nullptr);
    ASSERT_EQ(EOWNERDEAD, pthread_mutex_lock(&mutex));
    pthread_mutex_unlock(&mutex);
}

TEST(Pumps, ALockThatFailsIsThrownOutOfTheirThreads) {
    runningState = 1;
    makeUnusable(mutexOutputThreader);
    makeUnusable(mutexInputThreader);
    OddMessage message;
    OutputPumpRecord output{nullptr, &message, &cvout, 1000};
    EXPECT_THROW(OutputThreader(&output), std::system_error);
    InputPumpRecord input{nullptr, nullptr};
    EXPECT_THROW(InputThreader(&input), std::system_error);
}

/** A Pdelay_Req frame, with another type when wanted. */
Bytes requestFrame(unsigned char type) {
    Bytes frame = fromHex("0180c200000e02000000000288f712020036");
    frame.resize(14 + 54);
    frame[14] = static_cast<unsigned char>(0x10 | type);
    return frame;
}

TEST(InputPump, DropsFramesOfUnknownTypeSilently) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    TSynInstanceConfig config = slaveConfig();
    config.PropagationDelay = 1;
    const RunningDaemon daemon(config, 2);
    ASSERT_TRUE(output.await(">PropagationDelay: 1\n"));
    const auto linesAfterAnswer = [&] {
        EXPECT_TRUE(peer.send(requestFrame(2)));
        EXPECT_TRUE(peer.awaitType(10));  // Pdelay_Resp_Follow_Up, the end of an answer
        return output.lines().size();
    };
    linesAfterAnswer();
    const std::size_t before = linesAfterAnswer();
    const std::size_t perAnswer = linesAfterAnswer() - before;
    for (const unsigned char type : {1, 4, 5, 6, 7, 9, 12, 13, 14, 15}) {
        ASSERT_TRUE(peer.send(requestFrame(type)));
    }
    EXPECT_EQ(before + 2 * perAnswer, linesAfterAnswer());
}

TEST(InputPump, DropsAFrameWhoseHandlingThrowsAndGoesOn) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    QuickKernel kernel;
    std::atomic<int> failures{0};
    kernel.sendto = [&](int, const void*, std::size_t, int,
                        const sockaddr*) -> std::optional<ssize_t> {
        if (ownThreadName() == "TSyn_SInp_tsm0" && failures < 2) {
            ++failures;
            throw std::runtime_error("no answer");
        }
        return std::nullopt;
    };
    TSynInstanceConfig config = slaveConfig();
    config.PropagationDelay = 1;
    const RunningDaemon daemon(config, 2);
    ASSERT_TRUE(output.await(">PropagationDelay: 1\n"));
    for (int i = 1; i <= 2; ++i) {
        ASSERT_TRUE(peer.send(requestFrame(2)));
        EXPECT_TRUE(eventually([&] { return failures == i; }));
    }
    ASSERT_TRUE(peer.send(requestFrame(2)));
    EXPECT_TRUE(peer.awaitType(10));  // Pdelay_Resp_Follow_Up, the end of an answer
}

TEST(InputPump, SleepsAMillisecondWithItsMutexWhenNothingCame) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    KernelSeam kernel;
    std::atomic<int> held{0}, idle{0};
    kernel.usleep = [&](useconds_t microseconds) -> std::optional<int> {
        if (microseconds == 1000 && ownThreadName() == "TSyn_SInp_tsm0") {
            held += pthread_mutex_trylock(&mutexInputThreader) == EBUSY ? 1 : 0;
            ++idle;
        }
        return std::nullopt;
    };
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_TRUE(eventually([&] { return idle >= 3; }));
    EXPECT_GE(held, 3);
}

}  // namespace
