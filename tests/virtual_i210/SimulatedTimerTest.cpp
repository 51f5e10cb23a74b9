#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>

#include "tests/virtual_i210/SimulatedRun.h"

namespace {

class SimulatedTimer : public SimulatedRun {
protected:
    SimulatedTimer() : fd_(timerfd_create(CLOCK_MONOTONIC, 0)) {}
    ~SimulatedTimer() override { close(fd_); }

    void set(std::uint64_t firstNs, std::uint64_t periodNs, int flags = 0) {
        const itimerspec wished = {timespecOf(periodNs), timespecOf(firstNs)};
        EXPECT_EQ(0, timerfd_settime(fd_, flags, &wished, nullptr));
    }
    std::uint64_t expirations() {
        std::uint64_t count = 0;
        EXPECT_EQ(8, read(fd_, &count, sizeof count));
        return count;
    }

    int fd_;
};

TEST_F(SimulatedTimer, ExpiresOnce) {
    set(2 * kSecond, 0);
    EXPECT_EQ(2 * kSecond, durationOf([&] { EXPECT_EQ(1u, expirations()); }));
    pollfd entry = {fd_, POLLIN, 0};
    EXPECT_EQ(0, poll(&entry, 1, 60'000));
}

TEST_F(SimulatedTimer, ExpiresPeriodically) {
    set(kSecond, 125 * kMs);
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(1u, expirations()); }));
    EXPECT_EQ(125 * kMs, durationOf([&] { EXPECT_EQ(1u, expirations()); }));
    sleepNs(kSecond);
    EXPECT_EQ(0u, durationOf([&] { EXPECT_EQ(8u, expirations()); }));
}

TEST_F(SimulatedTimer, ExpiresAtAnInstant) {
    close(fd_);
    fd_ = timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC);
    const itimerspec wished = {{0, 0}, ahead(CLOCK_REALTIME, 5 * kSecond)};
    ASSERT_EQ(0, timerfd_settime(fd_, TFD_TIMER_ABSTIME, &wished, nullptr));
    EXPECT_EQ(5 * kSecond, durationOf([&] { EXPECT_EQ(1u, expirations()); }));
}

TEST_F(SimulatedTimer, WakesPollAndEpoll) {
    set(kSecond, kSecond);
    pollfd entry = {fd_, POLLIN, 0};
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(1, poll(&entry, 1, -1)); }));
    EXPECT_EQ(1u, expirations());
    const int several = epoll_create1(0);
    epoll_event event{};
    event.events = EPOLLIN;
    ASSERT_EQ(0, epoll_ctl(several, EPOLL_CTL_ADD, fd_, &event));
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(1, epoll_wait(several, &event, 1, -1)); }));
    close(several);
}

TEST_F(SimulatedTimer, IsDisarmed) {
    set(kSecond, kSecond);
    sleepNs(2 * kSecond);
    itimerspec before{};
    const itimerspec never{};
    ASSERT_EQ(0, timerfd_settime(fd_, 0, &never, &before));
    EXPECT_EQ(1, before.it_interval.tv_sec);
    pollfd entry = {fd_, POLLIN, 0};
    EXPECT_EQ(0, poll(&entry, 1, 60'000));
}

TEST_F(SimulatedTimer, TellsTheTimeLeft) {
    set(10 * kSecond, 3 * kSecond);
    sleepNs(4 * kSecond);
    itimerspec left{};
    ASSERT_EQ(0, timerfd_gettime(fd_, &left));
    EXPECT_EQ(6, left.it_value.tv_sec);
    EXPECT_EQ(0, left.it_value.tv_nsec);
    EXPECT_EQ(3, left.it_interval.tv_sec);
    sleepNs(7 * kSecond);
    ASSERT_EQ(0, timerfd_gettime(fd_, &left));
    EXPECT_EQ(2, left.it_value.tv_sec) << "the first is over, the second comes after 13 s";
}

TEST_F(SimulatedTimer, DoesNotBlockWhereItMustNot) {
    close(fd_);
    fd_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
    set(kSecond, 0);
    std::uint64_t count = 0;
    EXPECT_EQ(-1, read(fd_, &count, sizeof count));
    EXPECT_EQ(EAGAIN, errno);
    sleepNs(kSecond);
    EXPECT_EQ(1u, expirations());
}

TEST_F(SimulatedTimer, RefusesWhatTheKernelRefuses) {
    EXPECT_EQ(-1, timerfd_create(CLOCK_MONOTONIC, 1));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, timerfd_create(CLOCK_PROCESS_CPUTIME_ID, 0));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, timerfd_settime(fd_, 0, nullptr, nullptr));
    EXPECT_EQ(EFAULT, errno);
    const itimerspec wrong = {{0, 0}, {0, 1'000'000'000}};
    EXPECT_EQ(-1, timerfd_settime(fd_, 0, &wrong, nullptr));
    EXPECT_EQ(EINVAL, errno);
    const itimerspec fine{};
    EXPECT_EQ(-1, timerfd_settime(STDIN_FILENO, 0, &fine, nullptr));
}

TEST_F(SimulatedTimer, IsGoneWhenItsNumberNamesAnotherFile) {
    set(kSecond, 0);
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(fd_, dup2(ends[1], fd_));
    EXPECT_EQ(0, poll(nullptr, 0, 2000));
    pollfd entry = {ends[0], POLLIN, 0};
    EXPECT_EQ(0, poll(&entry, 1, 0)) << "an expiration was written into the pipe";
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
