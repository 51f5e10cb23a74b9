#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ptp_clock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/timex.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>

#include "tests/support/Sandbox.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

clockid_t clockOf(int fd) {
    return static_cast<clockid_t>(~fd) * 8 + 3;
}

std::int64_t asNs(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::int64_t asNs(const ptp_clock_time& time) {
    return static_cast<std::int64_t>(time.sec) * 1'000'000'000 + time.nsec;
}

std::int64_t readClock(clockid_t clock) {
    timespec time{};
    EXPECT_EQ(0, clock_gettime(clock, &time));
    return asNs(time);
}

std::int64_t truth(std::uint64_t rawNs) {
    return static_cast<std::int64_t>(*virtual_i210::truePhcNs("tss0", rawNs));
}

class CardClock : public testing::Test {
protected:
    CardClock() {
        setenv("VIRTUAL_I210",
               "state=/dev/shm/cards seed=9; tsm0 phc=0;"
               "tss0 phc=17 rate_ppb=37000 offset_ns=1500000000 wander_ppb=15",
               1);
        fd_ = open("/dev/ptp17", O_RDWR);
    }
    ~CardClock() override { close(fd_); }

    Sandbox sandbox_;
    int fd_ = -1;
};

TEST_F(CardClock, OpensUnderItsIndexAlone) {
    EXPECT_GE(fd_, 0);
    EXPECT_EQ(-1, open("/dev/ptp18", O_RDWR));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, open("/dev/ptp17x", O_RDWR));
}

TEST_F(CardClock, BeginsAtTheSystemTimePlusItsOffset) {
    const std::int64_t aheadNs = readClock(clockOf(fd_)) - readClock(CLOCK_REALTIME);
    EXPECT_NEAR(1.5e9, static_cast<double>(aheadNs), 50e6);
}

TEST_F(CardClock, IsReadBetweenCallAndReturn) {
    for (int i = 0; i < 1000; ++i) {
        const std::uint64_t before = virtual_i210::rawNowNs();
        const std::int64_t phcNs = readClock(clockOf(fd_));
        const std::uint64_t after = virtual_i210::rawNowNs();
        ASSERT_EQ(0, phcNs % 8);
        ASSERT_GT(phcNs, truth(before) - 8);
        ASSERT_LE(phcNs, truth(after));
    }
}

TEST_F(CardClock, IsSetAndStepped) {
    const timespec start{1000, 500'000'000};
    ASSERT_EQ(0, clock_settime(clockOf(fd_), &start));
    const std::int64_t set = readClock(clockOf(fd_));
    EXPECT_GE(set, 1'000'500'000'000);
    EXPECT_LT(set, 1'001'000'000'000);
    timex step{};
    step.modes = ADJ_SETOFFSET | ADJ_NANO;
    step.time.tv_sec = -3;
    step.time.tv_usec = 250;
    ASSERT_EQ(0, clock_adjtime(clockOf(fd_), &step));
    EXPECT_NEAR(-3e9, static_cast<double>(readClock(clockOf(fd_)) - set), 500e6);
}

TEST_F(CardClock, RunsAtTheAdjustedRate) {
    timex tune{};
    tune.modes = ADJ_FREQUENCY;
    tune.freq = -37L * 65536;
    ASSERT_EQ(0, clock_adjtime(clockOf(fd_), &tune));
    const std::uint64_t now = virtual_i210::rawNowNs();
    const std::int64_t hourNs = 3'600'000'000'000;
    const std::int64_t moved = truth(now + static_cast<std::uint64_t>(hourNs)) - truth(now);
    // (1 + 37e-6)(1 - 37e-6), and a wander of at most 15 ppb x 127.1 s / 8 either way
    EXPECT_NEAR(-37e-6 * 37e-6 * 3.6e12, static_cast<double>(moved - hourNs), 500.0);
    timex read{};
    ASSERT_EQ(0, clock_adjtime(clockOf(fd_), &read));
    EXPECT_EQ(-37L * 65536, read.freq);
}

TEST_F(CardClock, RefusesWhatTheDriverRefuses) {
    timex offset{};
    offset.modes = ADJ_OFFSET;
    EXPECT_EQ(-1, clock_adjtime(clockOf(fd_), &offset));
    EXPECT_EQ(EOPNOTSUPP, errno);
    const timespec bad{1, 1'000'000'000};
    EXPECT_EQ(-1, clock_settime(clockOf(fd_), &bad));
    EXPECT_EQ(EINVAL, errno);
    ptp_sys_offset_precise precise{};
    EXPECT_EQ(-1, ioctl(fd_, PTP_SYS_OFFSET_PRECISE, &precise));
    EXPECT_EQ(EOPNOTSUPP, errno);
}

TEST_F(CardClock, RefusesAFrequencyBeyondTheCards) {
    const std::int64_t scaledPpm = std::int64_t{62'501} * 65'536;
    if (scaledPpm > std::numeric_limits<long>::max()) {
        GTEST_SKIP() << "a 32-bit timex cannot ask for it";
    }
    timex tune{};
    tune.modes = ADJ_FREQUENCY;
    tune.freq = static_cast<long>(scaledPpm);
    EXPECT_EQ(-1, clock_adjtime(clockOf(fd_), &tune));
    EXPECT_EQ(ERANGE, errno);
}

TEST_F(CardClock, IsOnlyReadThroughAReadOnlyDescriptor) {
    const int fd = open("/dev/ptp17", O_RDONLY);
    ASSERT_GE(fd, 0);
    EXPECT_GT(readClock(clockOf(fd)), 0);
    const timespec start{1000, 0};
    EXPECT_EQ(-1, clock_settime(clockOf(fd), &start));
    EXPECT_EQ(EACCES, errno);
    close(fd);
}

TEST_F(CardClock, FollowsItsDescriptorThroughCopies) {
    const int copy = dup(fd_);
    const int moved = fcntl(copy, F_DUPFD_CLOEXEC, 100);
    EXPECT_GT(readClock(clockOf(moved)), 0);
    close(moved);
    timespec time{};
    EXPECT_EQ(-1, clock_gettime(clockOf(moved), &time));
    EXPECT_GT(readClock(clockOf(copy)), 0);
    close(copy);
}

TEST_F(CardClock, IsBracketedByTheSystemClock) {
    ptp_sys_offset request{};
    request.n_samples = 25;
    const std::int64_t before = readClock(clockOf(fd_));
    ASSERT_EQ(0, ioctl(fd_, PTP_SYS_OFFSET, &request));
    const std::int64_t after = readClock(clockOf(fd_));
    for (std::size_t i = 0; i < 25; ++i) {
        const std::int64_t phcNs = asNs(request.ts[2 * i + 1]);
        EXPECT_LT(asNs(request.ts[2 * i]), asNs(request.ts[2 * i + 2]));
        EXPECT_GE(phcNs, i == 0 ? before : asNs(request.ts[2 * i - 1]));
        EXPECT_LE(phcNs, after);
    }
    request.n_samples = 26;
    EXPECT_EQ(-1, ioctl(fd_, PTP_SYS_OFFSET, &request));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(CardClock, IsBracketedSampleBySample) {
    ptp_sys_offset_extended request{};
    request.n_samples = 5;
    ASSERT_EQ(0, ioctl(fd_, PTP_SYS_OFFSET_EXTENDED, &request));
    for (unsigned i = 0; i < 5; ++i) {
        const std::int64_t widthNs = asNs(request.ts[i][2]) - asNs(request.ts[i][0]);
        EXPECT_GE(widthNs, 100);  // no reading is faster
        EXPECT_EQ(0, asNs(request.ts[i][1]) % 8);
    }
}

TEST_F(CardClock, IsSharedWithOtherProcesses) {
    const pid_t child = fork();
    if (child == 0) {
        const timespec start{5000, 0};
        _exit(clock_settime(clockOf(open("/dev/ptp17", O_RDWR)), &start) == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_EQ(0, status);
    EXPECT_EQ(5, readClock(clockOf(fd_)) / 1'000'000'000'000);
}

TEST_F(CardClock, IsSteppedAndRetunedByOrder) {
    const std::uint64_t raw = virtual_i210::rawNowNs();
    const std::int64_t before = truth(raw);
    virtual_i210::stepPhc("tss0", 1'000'000);
    virtual_i210::setRatePpb("tss0", -12.5);
    EXPECT_EQ(before, truth(raw)) << "the past changed";
    const std::uint64_t now = virtual_i210::rawNowNs();
    const double driftNs = 37e-6 * static_cast<double>(now - raw);
    EXPECT_NEAR(1e6,
                static_cast<double>(truth(now) - before - static_cast<std::int64_t>(now - raw)),
                driftNs + 2.0);
    EXPECT_DOUBLE_EQ(-12.5, virtual_i210::cards().at(1).ratePpb);
}

TEST_F(CardClock, LeavesOtherClocksToTheKernel) {
    const int file = open("/dev/null", O_RDWR);
    timespec time{};
    EXPECT_EQ(-1, clock_gettime(clockOf(file), &time));
    EXPECT_EQ(-1, ioctl(file, PTP_CLOCK_GETCAPS, &time));
    EXPECT_EQ(0, clock_gettime(CLOCK_MONOTONIC, &time));
    EXPECT_EQ(0, clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time));
    close(file);
}

TEST(CardState, IsRefusedToOtherSettings) {
    Sandbox sandbox;
    virtual_i210::attach("state=/dev/shm/cards; tsm0");
    setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0 cable_ns=1", 1);
    EXPECT_EXIT(open("/dev/ptp0", O_RDWR), testing::ExitedWithCode(1),
                "VIRTUAL_I210: the state file '/dev/shm/cards' belongs to other settings");
}

TEST(CardState, IsKeptForTheLastOfAllCards) {
    Sandbox sandbox;
    std::string text = "state=/dev/shm/cards;";
    for (int i = 0; i < 256; ++i) {
        text += "card" + std::to_string(i) + " offset_ns=" + std::to_string(i) + ";";
    }
    setenv("VIRTUAL_I210", text.c_str(), 1);
    const int fd = open("/dev/ptp255", O_RDWR);
    ASSERT_GE(fd, 0);
    const timespec start{5000, 0};
    EXPECT_EQ(0, clock_settime(clockOf(fd), &start));
    EXPECT_EQ(5000, readClock(clockOf(fd)) / 1'000'000'000);
    EXPECT_EQ(255, virtual_i210::cards().at(255).offsetNs);
    EXPECT_EQ(1u, virtual_i210::counters("card255").clockAdjustments);
    EXPECT_EQ(0u, virtual_i210::counters("card254").clockAdjustments);
    EXPECT_EQ(-1, open("/dev/ptp256", O_RDWR));
    close(fd);
}

TEST(CardState, IsNotMadeFromAMalformedText) {
    Sandbox sandbox;
    setenv("VIRTUAL_I210", "tsm0 phc=x", 1);
    EXPECT_EXIT(open("/dev/ptp0", O_RDWR), testing::ExitedWithCode(1),
                "VIRTUAL_I210: entry 1: 'phc=x': write a whole number from 0 to 999");
    struct stat status {};
    EXPECT_EQ(-1, stat("/dev/shm/virtual_i210", &status));
}

}  // namespace
