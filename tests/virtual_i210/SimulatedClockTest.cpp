#include <fcntl.h>
#include <linux/ptp_clock.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "tests/virtual_i210/SimulatedRun.h"

extern "C" unsigned long long zebCycleCounter();

namespace {

constexpr std::uint64_t kFirstRealtimeNs = 1'767'225'600 * kSecond;

class SimulatedClock : public SimulatedRun {};

class EachSimulatedClock : public SimulatedClock, public testing::WithParamInterface<clockid_t> {};

TEST_P(EachSimulatedClock, MovesByTheSleepAlone) {
    const std::uint64_t before = readNs(GetParam());
    sleepNs(3600 * kSecond);
    EXPECT_EQ(3600 * kSecond, readNs(GetParam()) - before);
}

INSTANTIATE_TEST_SUITE_P(Simulated, EachSimulatedClock,
                         testing::Values(CLOCK_REALTIME, CLOCK_REALTIME_COARSE, CLOCK_MONOTONIC,
                                         CLOCK_MONOTONIC_RAW, CLOCK_MONOTONIC_COARSE,
                                         CLOCK_BOOTTIME, CLOCK_TAI));

TEST_F(SimulatedClock, BeginsAtTheSameInstantInEveryRun) {
    EXPECT_EQ(kFirstRealtimeNs, readNs(CLOCK_REALTIME));
    EXPECT_EQ(1000 * kSecond, readNs(CLOCK_MONOTONIC));
}

TEST_F(SimulatedClock, TellsTimeOfDayAndSeconds) {
    sleepNs(kSecond + 2'345);
    timeval day{};
    ASSERT_EQ(0, gettimeofday(&day, nullptr));
    EXPECT_EQ(1'767'225'601, day.tv_sec);
    EXPECT_EQ(2, day.tv_usec);
    time_t seconds = 0;
    EXPECT_EQ(1'767'225'601, time(&seconds));
    EXPECT_EQ(1'767'225'601, seconds);
    EXPECT_EQ(1'767'225'601, time(nullptr));
}

TEST_F(SimulatedClock, IsSetForTheRunAlone) {
    const timespec wished = {5'000, 7};
    ASSERT_EQ(0, clock_settime(CLOCK_REALTIME, &wished));
    EXPECT_EQ(5'000 * kSecond + 7, readNs(CLOCK_REALTIME));
    EXPECT_EQ(1000 * kSecond, readNs(CLOCK_MONOTONIC));
    sleepNs(kSecond);
    EXPECT_EQ(5'001 * kSecond + 7, readNs(CLOCK_REALTIME));
    EXPECT_EQ(0, resultOf(startProcess([] { return time(nullptr) == 5'001 ? 0 : 1; })));
}

TEST_F(SimulatedClock, IsNotSetToWhatIsNoTime) {
    const timespec late = {1, 1'000'000'000};
    EXPECT_EQ(-1, clock_settime(CLOCK_REALTIME, &late));
    EXPECT_EQ(EINVAL, errno);
    const timespec fine = {1, 0};
    EXPECT_EQ(-1, clock_settime(CLOCK_MONOTONIC, &fine));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(SimulatedClock, KeepsItsRate) {
    timex question{};
    EXPECT_EQ(0, clock_adjtime(CLOCK_REALTIME, &question));
    EXPECT_EQ(10'000, question.tick);
    question.modes = ADJ_FREQUENCY;
    EXPECT_EQ(-1, clock_adjtime(CLOCK_REALTIME, &question));
    EXPECT_EQ(EPERM, errno);
}

TEST_F(SimulatedClock, IsNotThatOfTheMachine) {
    timeval day = {77'000, 5};
    ASSERT_EQ(0, settimeofday(&day, nullptr));
    EXPECT_EQ(77'000 * kSecond + 5'000, readNs(CLOCK_REALTIME));
    timex wish{};
    wish.modes = ADJ_FREQUENCY;
    EXPECT_EQ(-1, adjtimex(&wish));
    EXPECT_EQ(EPERM, errno);
    EXPECT_EQ(-1, ntp_adjtime(&wish));
    EXPECT_EQ(-1, adjtime(&day, nullptr));
    EXPECT_EQ(EPERM, errno);
}

TEST_F(SimulatedClock, CountsCyclesOfThreeGigahertz) {
    const unsigned long long before = zebCycleCounter();
    sleepNs(kMs);
    EXPECT_EQ(3 * kMs, zebCycleCounter() - before);
}

TEST_F(SimulatedClock, MovesTheCards) {
    const int fd = open("/dev/ptp0", O_RDONLY);
    const clockid_t phc = static_cast<clockid_t>(~fd) * 8 + 3;
    const std::uint64_t before = readNs(phc);
    sleepNs(3600 * kSecond);
    EXPECT_NEAR(3600e9, static_cast<double>(readNs(phc) - before), 300.0 + 8.0);
    close(fd);
}

class CostlyClock : public SimulatedRun {
protected:
    CostlyClock()
        : SimulatedRun(
              "cost_clock_ns=100 cost_call_ns=7000 cost_wake_ns=0 cost_notify_ns=0 "
              "cost_wake_jitter_ns=0; tsm0 read_ns=2000 read_jitter_ns=0") {}
};

TEST_F(CostlyClock, TakesTimeToRead) {
    const std::uint64_t first = readNs(CLOCK_REALTIME);
    std::uint64_t longest = 0;
    std::uint64_t before = first;
    for (int i = 0; i < 1000; ++i) {
        const std::uint64_t now = readNs(CLOCK_REALTIME);
        ASSERT_GE(now, before);
        longest = std::max(longest, now - before);
        before = now;
    }
    EXPECT_NEAR(100e3, static_cast<double>(before - first), 2e3);
    EXPECT_GT(longest, 150u) << "the instant lies anywhere in a reading";
    EXPECT_LE(longest, 250u);
}

TEST_F(CostlyClock, ShowsHowLongACardIsRead) {
    const int fd = open("/dev/ptp0", O_RDONLY);
    ptp_sys_offset_extended request{};
    request.n_samples = 5;
    ASSERT_EQ(0, ioctl(fd, PTP_SYS_OFFSET_EXTENDED, &request));
    for (unsigned i = 0; i < 5; ++i) {
        const auto width =
            static_cast<std::int64_t>(request.ts[i][2].sec - request.ts[i][0].sec) * 1'000'000'000 +
            request.ts[i][2].nsec - request.ts[i][0].nsec;
        EXPECT_GE(width, 2000 + 75);
        EXPECT_LE(width, 2000 + 3 * 125);
    }
    close(fd);
}

TEST_F(CostlyClock, CountsWorkAsProcessorTime) {
    const std::uint64_t process = readNs(CLOCK_PROCESS_CPUTIME_ID);
    const std::uint64_t thread = readNs(CLOCK_THREAD_CPUTIME_ID);
    sleepNs(kSecond);
    EXPECT_GE(readNs(CLOCK_PROCESS_CPUTIME_ID) - process, 7000u);
    EXPECT_LT(readNs(CLOCK_PROCESS_CPUTIME_ID) - process, 30'000u);
    EXPECT_GE(readNs(CLOCK_THREAD_CPUTIME_ID) - thread, 7000u);
    EXPECT_LT(readNs(CLOCK_THREAD_CPUTIME_ID) - thread, 30'000u);
}

}  // namespace
