#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "tests/virtual_i210/PtpFrames.h"
#include "tests/virtual_i210/SimulatedRun.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

/** With a pipe, and a thread that writes to it three seconds from now. */
class SimulatedPoll : public SimulatedRun {
protected:
    SimulatedPoll() { EXPECT_EQ(0, pipe(pipe_)); }
    ~SimulatedPoll() override {
        if (writer_.joinable()) {
            writer_.join();
        }
        close(pipe_[0]);
        close(pipe_[1]);
    }
    void writeLater() {
        writer_ = std::thread([this] {
            sleepNs(3 * kSecond);
            EXPECT_EQ(1, write(pipe_[1], "x", 1));
        });
    }
    fd_set readable() const {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(pipe_[0], &set);
        return set;
    }
    int epollOfPipe() const {
        const int fd = epoll_create1(0);
        epoll_event wished{};
        wished.events = EPOLLIN;
        wished.data.u32 = 77;
        EXPECT_EQ(0, epoll_ctl(fd, EPOLL_CTL_ADD, pipe_[0], &wished));
        return fd;
    }

    int pipe_[2]{};
    std::thread writer_;
};

TEST_F(SimulatedPoll, GivesUpInTime) {
    pollfd entry = {pipe_[0], POLLIN, 0};
    EXPECT_EQ(1500 * kMs, durationOf([&] { EXPECT_EQ(0, poll(&entry, 1, 1500)); }));
    EXPECT_EQ(0u, durationOf([&] { EXPECT_EQ(0, poll(&entry, 1, 0)); }));
    const timespec time = {2, 7};
    EXPECT_EQ(2 * kSecond + 7, durationOf([&] { EXPECT_EQ(0, ppoll(&entry, 1, &time, nullptr)); }));
    EXPECT_EQ(kSecond, durationOf([] { EXPECT_EQ(0, poll(nullptr, 0, 1000)); }));
}

TEST_F(SimulatedPoll, SelectGivesUpInTime) {
    fd_set set = readable();
    timeval time = {1, 500'000};
    EXPECT_EQ(1500 * kMs, durationOf([&] {
                  EXPECT_EQ(0, select(pipe_[0] + 1, &set, nullptr, nullptr, &time));
              }));
    EXPECT_FALSE(FD_ISSET(pipe_[0], &set));
    set = readable();
    const timespec exact = {2, 7};
    EXPECT_EQ(2 * kSecond + 7, durationOf([&] {
                  EXPECT_EQ(0, pselect(pipe_[0] + 1, &set, nullptr, nullptr, &exact, nullptr));
              }));
    time = {0, 2'500'000};
    EXPECT_EQ(2500 * kMs,
              durationOf([&] { EXPECT_EQ(0, select(0, nullptr, nullptr, nullptr, &time)); }));
}

TEST_F(SimulatedPoll, EpollGivesUpInTime) {
    const int fd = epollOfPipe();
    epoll_event event{};
    EXPECT_EQ(1500 * kMs, durationOf([&] { EXPECT_EQ(0, epoll_wait(fd, &event, 1, 1500)); }));
    EXPECT_EQ(kMs, durationOf([&] { EXPECT_EQ(0, epoll_pwait(fd, &event, 1, 1, nullptr)); }));
    close(fd);
}

TEST_F(SimulatedPoll, RefusesWhatTheKernelRefuses) {
    const timespec negative = {-1, 0};
    EXPECT_EQ(-1, ppoll(nullptr, 0, &negative, nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, pselect(0, nullptr, nullptr, nullptr, &negative, nullptr));
    EXPECT_EQ(EINVAL, errno);
    timeval before = {0, -1};
    EXPECT_EQ(-1, select(0, nullptr, nullptr, nullptr, &before));
    EXPECT_EQ(EINVAL, errno);
    epoll_event event{};
    EXPECT_EQ(-1, epoll_wait(pipe_[0], &event, 1, -1));
    EXPECT_EQ(EINVAL, errno);
    char byte = 0;
    EXPECT_EQ(-1, read(-1, &byte, 1));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(0, read(pipe_[0], &byte, 0));
}

TEST_F(SimulatedPoll, SeesWhatAnotherThreadWrites) {
    writeLater();
    pollfd entry = {pipe_[0], POLLIN, 0};
    EXPECT_EQ(3 * kSecond, durationOf([&] { EXPECT_EQ(1, poll(&entry, 1, -1)); }));
    EXPECT_EQ(POLLIN, entry.revents);
}

TEST_F(SimulatedPoll, SelectSeesWhatAnotherThreadWrites) {
    writeLater();
    fd_set set = readable();
    EXPECT_EQ(3 * kSecond, durationOf([&] {
                  EXPECT_EQ(1, select(pipe_[0] + 1, &set, nullptr, nullptr, nullptr));
              }));
    EXPECT_TRUE(FD_ISSET(pipe_[0], &set));
}

TEST_F(SimulatedPoll, EpollSeesWhatAnotherThreadWrites) {
    writeLater();
    const int fd = epollOfPipe();
    epoll_event event{};
    EXPECT_EQ(3 * kSecond, durationOf([&] { EXPECT_EQ(1, epoll_wait(fd, &event, 1, -1)); }));
    EXPECT_EQ(77u, event.data.u32);
    close(fd);
}

TEST_F(SimulatedPoll, ReadsWhatAnotherProcessWrites) {
    const pid_t child = startProcess([this] {
        sleepNs(3 * kSecond);
        return write(pipe_[1], "y", 1) == 1 ? 0 : 1;
    });
    char byte = 0;
    EXPECT_EQ(3 * kSecond, durationOf([&] { EXPECT_EQ(1, read(pipe_[0], &byte, 1)); }));
    EXPECT_EQ('y', byte);
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedPoll, SeesTheOtherEndClosed) {
    std::thread closer([this] {
        sleepNs(kSecond);
        close(pipe_[1]);
    });
    char byte = 0;
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(0, read(pipe_[0], &byte, 1)); }));
    closer.join();
    pipe_[1] = -1;
}

TEST_F(SimulatedPoll, DoesNotBlockWhereItMustNot) {
    fcntl(pipe_[0], F_SETFL, O_NONBLOCK);
    char byte = 0;
    EXPECT_EQ(0u, durationOf([&] { EXPECT_EQ(-1, read(pipe_[0], &byte, 1)); }));
    EXPECT_EQ(EAGAIN, errno);
}

TEST_F(SimulatedPoll, IsInterruptedByAHandlerThatItsMaskLetsIn) {
    const pid_t parent = getpid();
    catchSignal(SIGUSR1);
    sigset_t set;
    sigemptyset(&set);
    sigset_t none = set;
    sigaddset(&set, SIGUSR1);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    const pid_t child = startProcess([=] {
        sleepNs(kSecond);
        return kill(parent, SIGUSR1);
    });
    const timespec most = {60, 0};
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(-1, ppoll(nullptr, 0, &most, &none));
                  EXPECT_EQ(EINTR, errno);
              }));
    EXPECT_EQ(1, caughtSignals());
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(1, sigismember(&now, SIGUSR1));
    EXPECT_EQ(0, resultOf(child));
}

/** A read that a signal meets after a second, and data after three. */
TEST_F(SimulatedPoll, ReadsOnAfterAHandlerThatRestartsCalls) {
    const pid_t parent = getpid();
    for (const int flags : {0, SA_RESTART}) {
        catchSignal(SIGUSR1, flags);
        const pid_t child = startProcess([=] {
            sleepNs(kSecond);
            return kill(parent, SIGUSR1);
        });
        std::thread writer([this] {
            sleepNs(3 * kSecond);
            EXPECT_EQ(1, write(pipe_[1], "x", 1));
        });
        char byte = 0;
        const std::uint64_t tookNs =
            durationOf([&] { EXPECT_EQ(flags == 0 ? -1 : 1, read(pipe_[0], &byte, 1)); });
        EXPECT_EQ(flags == 0 ? kSecond : 3 * kSecond, tookNs);
        writer.join();
        if (flags == 0) {
            EXPECT_EQ(1, read(pipe_[0], &byte, 1));
        }
        EXPECT_EQ(0, resultOf(child));
    }
}

TEST_F(SimulatedPoll, EndsWithACancelledThread) {
    bool passed = false;
    std::thread poller([&] {
        pollfd entry = {pipe_[0], POLLIN, 0};
        poll(&entry, 1, -1);
        passed = true;
    });
    sleepNs(kSecond);
    EXPECT_EQ(0, pthread_cancel(poller.native_handle()));
    EXPECT_EQ(0u, durationOf([&] { poller.join(); }));
    EXPECT_FALSE(passed);
}

class SimulatedDatagram : public SimulatedRun {
protected:
    SimulatedDatagram() : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address_;
        EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&address_), length));
        EXPECT_EQ(0, getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &length));
    }
    ~SimulatedDatagram() override { close(fd_); }

    int fd_;
    sockaddr_in address_{};
};

TEST_F(SimulatedDatagram, IsAwaitedForTheSocketsTime) {
    const timeval most = {2, 500'000};
    ASSERT_EQ(0, setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof most));
    char bytes[8];
    EXPECT_EQ(2500 * kMs, durationOf([&] {
                  EXPECT_EQ(-1, recv(fd_, bytes, sizeof bytes, 0));
                  EXPECT_EQ(EAGAIN, errno);
              }));
    EXPECT_EQ(0u, durationOf([&] { EXPECT_EQ(-1, recv(fd_, bytes, 8, MSG_DONTWAIT)); }));
}

TEST_F(SimulatedDatagram, ComesAtTheInstantOfItsSending) {
    std::thread sender([this] {
        sleepNs(4 * kSecond);
        sendto(fd_, "hallo", 5, 0, reinterpret_cast<sockaddr*>(&address_), sizeof address_);
    });
    char bytes[8];
    EXPECT_EQ(4 * kSecond, durationOf([&] {
                  EXPECT_EQ(5, recvfrom(fd_, bytes, sizeof bytes, 0, nullptr, nullptr));
              }));
    sender.join();
}

TEST_F(SimulatedCable, CarriesAFrameWhenItsTimeIsOver) {
    const PeerSocket slave("tss0");
    std::thread master([] {
        const PeerSocket socket("tsm0");
        sleepNs(kSecond);
        EXPECT_TRUE(socket.send(ptpFrame(0, 1)));
        sleepNs(kSecond);
        EXPECT_TRUE(socket.send(ptpFrame(0, 2)));
    });
    unsigned char bytes[1500];
    pollfd entry = {slave.descriptor(), POLLIN, 0};
    EXPECT_EQ(kSecond + 500, durationOf([&] { EXPECT_EQ(1, poll(&entry, 1, -1)); }));
    EXPECT_LT(0, recv(slave.descriptor(), bytes, sizeof bytes, MSG_DONTWAIT));
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_LT(0, recv(slave.descriptor(), bytes, 1500, 0)); }));
    master.join();
}

TEST_F(SimulatedCable, ShowsNoFrameBeforeItsTime) {
    const PeerSocket master("tsm0");
    const PeerSocket slave("tss0");
    ASSERT_TRUE(master.send(ptpFrame(0, 1)));
    unsigned char byte = 0;
    pollfd entry = {slave.descriptor(), POLLIN, 0};
    EXPECT_EQ(0, poll(&entry, 1, 0));
    EXPECT_EQ(-1, recv(slave.descriptor(), &byte, 1, MSG_DONTWAIT));
    EXPECT_EQ(EAGAIN, errno);
    sleepNs(499);
    EXPECT_EQ(0, poll(&entry, 1, 0));
    sleepNs(1);
    EXPECT_EQ(1, poll(&entry, 1, 0));
}

/** A master that starts anew sends the same frames again. */
TEST_F(SimulatedCable, StampsARepeatedFrameWithItsOwnInstant) {
    ASSERT_EQ(0, enableStamping("tss0"));
    const PeerSocket master("tsm0");
    const PeerSocket slave("tss0", PeerSocket::kHardwareStamps);
    const auto stampOf = [&](unsigned sequenceId) {
        EXPECT_TRUE(master.send(ptpFrame(0, sequenceId)));
        return slave.receive()->hardwareNs.value();
    };
    const std::int64_t first = stampOf(1);
    for (unsigned sequenceId = 2; sequenceId < 50; ++sequenceId) {
        stampOf(sequenceId);
    }
    sleepNs(20 * kSecond);
    const auto sentNs = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tss0", nowNs()));
    EXPECT_EQ((sentNs + 500) / 8 * 8, stampOf(1));
    EXPECT_GT(sentNs, first);
}

TEST_F(SimulatedCable, SelectShowsNoFrameBeforeItsTime) {
    const PeerSocket master("tsm0");
    const PeerSocket slave("tss0");
    ASSERT_TRUE(master.send(ptpFrame(0, 1)));
    fd_set set;
    FD_ZERO(&set);
    FD_SET(slave.descriptor(), &set);
    EXPECT_EQ(500u, durationOf([&] {
                  EXPECT_EQ(1, select(slave.descriptor() + 1, &set, nullptr, nullptr, nullptr));
              }));
    EXPECT_TRUE(FD_ISSET(slave.descriptor(), &set));
}

}  // namespace
