#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>

#include "tests/virtual_i210/SimulatedRun.h"

namespace {

class SimulatedSleep : public SimulatedRun {};

TEST_F(SimulatedSleep, LastsAsLongAsAsked) {
    const timespec time = {3, 500};
    EXPECT_EQ(3 * kSecond + 500, durationOf([&] { EXPECT_EQ(0, nanosleep(&time, nullptr)); }));
    EXPECT_EQ(3 * kSecond + 500, durationOf([&] {
                  EXPECT_EQ(0, clock_nanosleep(CLOCK_REALTIME, 0, &time, nullptr));
              }));
    EXPECT_EQ(2 * kMs, durationOf([] { EXPECT_EQ(0, usleep(2000)); }));
    EXPECT_EQ(86'400 * kSecond, durationOf([] { EXPECT_EQ(0u, sleep(86'400)); }));
}

TEST_F(SimulatedSleep, EndsAtAnInstantOfEachClock) {
    for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC, CLOCK_BOOTTIME}) {
        const timespec end = ahead(clock, 7 * kSecond);
        EXPECT_EQ(7 * kSecond, durationOf([&] {
                      EXPECT_EQ(0, clock_nanosleep(clock, TIMER_ABSTIME, &end, nullptr));
                  }));
        EXPECT_EQ(0u, durationOf([&] {
                      EXPECT_EQ(0, clock_nanosleep(clock, TIMER_ABSTIME, &end, nullptr));
                  }));
    }
}

TEST_F(SimulatedSleep, RefusesWhatTheKernelRefuses) {
    for (const timespec wrong : {timespec{-1, 0}, timespec{0, -1}, timespec{0, 1'000'000'000}}) {
        EXPECT_EQ(-1, nanosleep(&wrong, nullptr));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_EQ(EINVAL, clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wrong, nullptr));
    }
    const timespec fine = {0, 1};
    EXPECT_EQ(EINVAL, clock_nanosleep(77, 0, &fine, nullptr));
    EXPECT_EQ(EINVAL, clock_nanosleep(CLOCK_THREAD_CPUTIME_ID, 0, &fine, nullptr));
    EXPECT_EQ(EFAULT, clock_nanosleep(CLOCK_MONOTONIC, 0, nullptr, nullptr));
    EXPECT_EQ(-1, nanosleep(nullptr, nullptr));
    EXPECT_EQ(EFAULT, errno);
}

TEST_F(SimulatedSleep, OfAgesDoesNotEndAtOnce) {
    const pid_t sleeper = startProcess([] {
        const timespec ages = {std::numeric_limits<time_t>::max(), 0};
        nanosleep(&ages, nullptr);
        return 1;
    });
    sleepNs(20ULL * 365 * 86'400 * kSecond);
    ASSERT_EQ(0, kill(sleeper, SIGKILL));
    EXPECT_EQ(-1, resultOf(sleeper));
}

TEST_F(SimulatedSleep, IsInterruptedByAHandler) {
    const pid_t parent = getpid();
    catchSignal(SIGUSR1);
    const pid_t child = startProcess([=] {
        sleepNs(2 * kSecond);
        return kill(parent, SIGUSR1);
    });
    const timespec time = {5, 0};
    timespec left{};
    EXPECT_EQ(2 * kSecond, durationOf([&] {
                  EXPECT_EQ(-1, nanosleep(&time, &left));
                  EXPECT_EQ(EINTR, errno);
              }));
    EXPECT_EQ(3, left.tv_sec);
    EXPECT_EQ(0, left.tv_nsec);
    EXPECT_EQ(1, caughtSignals());
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedSleep, TellsTheSecondsLeft) {
    const pid_t parent = getpid();
    catchSignal(SIGUSR1, SA_RESTART);
    const pid_t child = startProcess([=] {
        sleepNs(2 * kSecond);
        return kill(parent, SIGUSR1);
    });
    EXPECT_EQ(8u, sleep(10));
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedSleep, IsNotDisturbedByAnIgnoredSignal) {
    const pid_t parent = getpid();
    signal(SIGUSR1, SIG_IGN);
    const pid_t child = startProcess([=] { return kill(parent, SIGUSR1); });
    EXPECT_EQ(5 * kSecond, durationOf([] { EXPECT_EQ(0u, sleep(5)); }));
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedSleep, PausesUntilAHandlerHasRun) {
    const pid_t parent = getpid();
    catchSignal(SIGUSR1);
    const pid_t child = startProcess([=] {
        sleepNs(3 * kSecond);
        return kill(parent, SIGUSR1);
    });
    EXPECT_EQ(3 * kSecond, durationOf([] {
                  EXPECT_EQ(-1, pause());
                  EXPECT_EQ(EINTR, errno);
              }));
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedSleep, IsInterruptedInTheThreadThatASignalNames) {
    catchSignal(SIGUSR1);
    std::uint64_t tookNs = 0;
    std::thread sleeper([&] { tookNs = durationOf([] { sleep(100); }); });
    sleepNs(7 * kSecond);
    EXPECT_EQ(0, pthread_kill(sleeper.native_handle(), SIGUSR1));
    EXPECT_EQ(0u, durationOf([&] { sleeper.join(); }));
    EXPECT_EQ(7 * kSecond, tookNs);
    EXPECT_EQ(1, caughtSignals());
}

TEST_F(SimulatedSleep, EndsByAnAlarm) {
    catchSignal(SIGALRM);
    EXPECT_EQ(0u, alarm(4));
    EXPECT_EQ(4 * kSecond, durationOf([] { EXPECT_EQ(-1, pause()); }));
    EXPECT_EQ(0u, alarm(10));
    sleepNs(3 * kSecond);
    EXPECT_EQ(7u, alarm(0));
    EXPECT_EQ(60 * kSecond, durationOf([] { EXPECT_EQ(0u, sleep(60)); }));
    EXPECT_EQ(1, caughtSignals());
}

TEST_F(SimulatedSleep, EndsByATimerAgainAndAgain) {
    catchSignal(SIGALRM);
    const itimerval wished = {{0, 125'000}, {2, 0}};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &wished, nullptr));
    EXPECT_EQ(2 * kSecond, durationOf([] { pause(); }));
    EXPECT_EQ(125 * kMs, durationOf([] { pause(); }));
    itimerval left{};
    ASSERT_EQ(0, getitimer(ITIMER_REAL, &left));
    EXPECT_EQ(125'000, left.it_value.tv_usec);
    EXPECT_EQ(0, resultOf(startProcess([] { return static_cast<int>(alarm(0)); })));
}

TEST_F(SimulatedSleep, EndsByASignalFromOutsideTheRun) {
    catchSignal(SIGUSR1);
    const pid_t own = getpid();
    const pid_t child = startProcess([=] {
        unsetenv("VIRTUAL_I210");
        const std::string order = "sleep 0.1; kill -USR1 " + std::to_string(own);
        return execl("/bin/sh", "sh", "-c", order.c_str(), nullptr);
    });
    EXPECT_EQ(-1, pause());
    EXPECT_EQ(1, caughtSignals());
    EXPECT_EQ(0, resultOf(child));
}

class SimulatedSignal : public SimulatedRun {
protected:
    SimulatedSignal() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGUSR1);
        sigaddset(&set_, SIGTERM);
        sigprocmask(SIG_BLOCK, &set_, nullptr);
    }
    /** A process that sends a signal here. */
    pid_t sender(int number, std::uint64_t afterNs) {
        const pid_t parent = getpid();
        return startProcess([=] {
            sleepNs(afterNs);
            return kill(parent, number);
        });
    }

    sigset_t set_{};
};

TEST_F(SimulatedSignal, IsAwaitedUntilItComes) {
    const pid_t child = sender(SIGTERM, 3 * kSecond);
    const timespec most = {10, 0};
    siginfo_t info{};
    EXPECT_EQ(3 * kSecond,
              durationOf([&] { EXPECT_EQ(SIGTERM, sigtimedwait(&set_, &info, &most)); }));
    EXPECT_EQ(child, info.si_pid);
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedSignal, IsNotAwaitedForLonger) {
    const timespec most = {10, 0};
    EXPECT_EQ(10 * kSecond, durationOf([&] {
                  EXPECT_EQ(-1, sigtimedwait(&set_, nullptr, &most));
                  EXPECT_EQ(EAGAIN, errno);
              }));
    const timespec wrong = {0, -1};
    EXPECT_EQ(-1, sigtimedwait(&set_, nullptr, &wrong));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(SimulatedSignal, IsAwaitedWithoutEnd) {
    const pid_t first = sender(SIGTERM, 3 * kSecond);
    EXPECT_EQ(SIGTERM, sigwaitinfo(&set_, nullptr));
    const pid_t second = sender(SIGUSR1, 4 * kSecond);
    int number = 0;
    EXPECT_EQ(4 * kSecond, durationOf([&] { EXPECT_EQ(0, sigwait(&set_, &number)); }));
    EXPECT_EQ(SIGUSR1, number);
    EXPECT_EQ(0, resultOf(first));
    EXPECT_EQ(0, resultOf(second));
}

TEST_F(SimulatedSignal, IsAwaitedFromOutsideTheRunToo) {
    const pid_t own = getpid();
    const pid_t child = startProcess([=] {
        unsetenv("VIRTUAL_I210");
        const std::string order = "sleep 0.1; kill -TERM " + std::to_string(own);
        return execl("/bin/sh", "sh", "-c", order.c_str(), nullptr);
    });
    int number = 0;
    EXPECT_EQ(0, sigwait(&set_, &number));
    EXPECT_EQ(SIGTERM, number);
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedSignal, IsAwaitedWithAnotherMask) {
    catchSignal(SIGUSR1);
    sigset_t none;
    sigemptyset(&none);
    const pid_t child = sender(SIGUSR1, 3 * kSecond);
    EXPECT_EQ(3 * kSecond, durationOf([&] {
                  EXPECT_EQ(-1, sigsuspend(&none));
                  EXPECT_EQ(EINTR, errno);
              }));
    EXPECT_EQ(1, caughtSignals());
    ASSERT_EQ(0, raise(SIGUSR1));
    EXPECT_EQ(-1, sigsuspend(&none)) << "one was pending";
    EXPECT_EQ(2, caughtSignals());
    EXPECT_EQ(0, resultOf(child));
}

}  // namespace
