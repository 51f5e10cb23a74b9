#include <gtest/gtest.h>
#include <x86intrin.h>

#include <cerrno>
#include <chrono>

#include "platform/i210helper.h"
#include "tests/platform/SocketReply.h"
#include "tests/support/Daemon.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Clock = std::chrono::steady_clock;

unsigned long long transmitStampFrom(const Reply& reply) {
    KernelSeam kernel;
    kernel.recvmsg = [&](int, msghdr* message, int) { return reply.fill(message); };
    return getTxTimestamp(kSocket);
}

TEST(TransmitTimestamp, IsTheThirdOfTheThreeTimes) {
    Reply reply{Bytes(58), {}};
    reply.withTimes(timeOf(9, 9), timeOf(1700000000, 5));
    EXPECT_EQ(1700000000000000005ULL, transmitStampFrom(reply));
}

TEST(TransmitTimestamp, IsTheLastOfSeveral) {
    Reply reply{{}, {}};
    reply.withTimes(timeOf(0, 0), timeOf(1, 1)).withTimes(timeOf(0, 0), timeOf(2, 2));
    EXPECT_EQ(2000000002ULL, transmitStampFrom(reply));
}

TEST(TransmitTimestamp, IsZeroWhenTheQueueHoldsNone) {
    EXPECT_EQ(0ULL, transmitStampFrom({Bytes(58), {}}));
}

TEST(TransmitTimestamp, IsReadFromTheErrorQueueOfTheGivenSocket) {
    KernelSeam kernel;
    // On a busy machine four real pauses may use the cycles up.
    kernel.usleep = [](useconds_t) { return 0; };
    int calls = 0;
    kernel.recvmsg = [&](int socket, msghdr* message, int flags) -> std::optional<ssize_t> {
        EXPECT_EQ(kSocket, socket);
        EXPECT_EQ(MSG_ERRQUEUE, flags);
        EXPECT_EQ(256U, message->msg_iov->iov_len);
        EXPECT_EQ(524U, message->msg_controllen);
        EXPECT_EQ(16U, message->msg_namelen);
        message->msg_controllen = 0;
        return ++calls < 4 ? KernelSeam::refuse(EAGAIN)
                           : Reply{{}, {}}.withTimes(timeOf(0, 0), timeOf(3, 3)).fill(message);
    };
    EXPECT_EQ(3000000003ULL, getTxTimestamp(kSocket));
    EXPECT_EQ(4, calls);
}

TEST(TransmitTimestamp, PausesBeforeAndBetweenTheReads) {
    KernelSeam kernel;
    std::string calls;
    int reads = 0;
    kernel.schedYield = [&] {
        calls += "yield ";
        return 0;
    };
    kernel.usleep = [&](useconds_t microseconds) {
        calls += std::to_string(microseconds) + " ";
        return 0;
    };
    kernel.recvmsg = [&](int, msghdr* message, int) -> std::optional<ssize_t> {
        calls += "read ";
        return ++reads < 3 ? KernelSeam::refuse(EAGAIN) : Reply{}.fill(message);
    };
    getTxTimestamp(kSocket);
    EXPECT_EQ("yield 1 read 50 read 50 read ", calls);
}

TEST(TransmitTimestamp, IsAwaitedForFiftyMillionCycles) {
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.usleep = [](useconds_t) { return 0; };
    std::vector<unsigned long long> reads;
    kernel.recvmsg = [&](int, msghdr*, int) {
        reads.push_back(__rdtsc());
        return KernelSeam::refuse(EAGAIN);
    };
    const unsigned long long start = __rdtsc();
    getTxTimestamp(kSocket);
    ASSERT_GE(reads.size(), 4U);
    const std::size_t last = reads.size() - 2;  // behind it comes the one of the grace
    EXPECT_GE(reads[last] - start, 50000000U);
    EXPECT_LT(reads[last - 2] - reads[0], 50000000U);
}

TEST(TransmitTimestamp, PollsNoFasterThanEveryFiftyMicroseconds) {
    KernelSeam kernel;
    std::vector<Clock::time_point> calls;
    kernel.recvmsg = [&](int, msghdr* message, int) -> std::optional<ssize_t> {
        calls.push_back(Clock::now());
        return calls.size() < 6 ? KernelSeam::refuse(EAGAIN) : Reply{}.fill(message);
    };
    getTxTimestamp(kSocket);
    for (std::size_t i = 1; i < calls.size(); ++i) {
        EXPECT_GE(calls[i] - calls[i - 1], std::chrono::microseconds(50));
    }
}

TEST(TransmitTimestamp, MissingForGoodIsReadOnceMoreAfterAMillisecond) {
    const StdoutCapture output;
    KernelSeam kernel;
    std::vector<std::pair<int, Clock::time_point>> calls;
    kernel.recvmsg = [&](int socket, msghdr*, int) {
        calls.emplace_back(socket, Clock::now());
        return KernelSeam::refuse(EAGAIN);
    };
    EXPECT_EQ(0ULL, getTxTimestamp(kSocket));
    ASSERT_GE(calls.size(), 3U);
    const auto onRawSocket = std::count_if(calls.begin(), calls.end(), [](const auto& call) {
        return call.first == i210helper::e1000_getsockid("");
    });
    EXPECT_EQ(1, onRawSocket);
    EXPECT_NE(kSocket, calls.back().first);
    EXPECT_GE(calls.back().second - calls[calls.size() - 2].second, std::chrono::milliseconds(1));
    ASSERT_EQ(std::vector<std::string>{"Timestamp still missing!"}, output.texts());
    EXPECT_EQ("ERROR", output.lines()[0].level);
}

TEST(TransmitTimestamp, FoundByTheLastReadCounts) {
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.recvmsg = [&](int socket, msghdr* message, int) -> std::optional<ssize_t> {
        return socket == kSocket
                   ? KernelSeam::refuse(EAGAIN)
                   : Reply{{}, {}}.withTimes(timeOf(0, 0), timeOf(4, 4)).fill(message);
    };
    EXPECT_EQ(4000000004ULL, getTxTimestamp(kSocket));
    EXPECT_EQ("", output.text());
}

TEST(TransmitTimestamp, IsSplitIntoSecondsAndNanoseconds) {
    KernelSeam kernel;
    Reply reply{{}, {}};
    reply.withTimes(timeOf(0, 0), timeOf(1700000000, 987654321));
    kernel.recvmsg = [&](int, msghdr* message, int) { return reply.fill(message); };
    UInterface interface {};
    ptp_time_t time{99, 99};
    EXPECT_TRUE(i210helper::retrieve_TX_timestamp(interface, nullptr, &time));
    EXPECT_EQ(1700000000ULL, time.seconds);
    EXPECT_EQ(987654321U, time.nanoseconds);
}

TEST(TransmitTimestamp, OfAServiceIsReadFromTheProcessWideSocket) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    const int raw = EnableI210Timestamping("tsm0");
    KernelSeam kernel;
    std::vector<int> sockets;
    kernel.recvmsg = [&](int socket, msghdr* message, int) {
        sockets.push_back(socket);
        return Reply{}.fill(message);
    };
    UInterface interface {};
    interface.s = kSocket;
    ptp_time_t time{};
    i210helper::retrieve_TX_timestamp(interface, nullptr, &time);
    EXPECT_EQ(std::vector<int>{raw}, sockets);
}

TEST(TransmitTimestamp, IsClearedWhileItIsAwaitedAndWhenNoneCame) {
    const StdoutCapture output;
    KernelSeam kernel;
    ptp_time_t time{99, 99};
    kernel.recvmsg = [&](int, msghdr*, int) {
        EXPECT_EQ(0ULL, toNs(time));
        return KernelSeam::refuse(EAGAIN);
    };
    UInterface interface {};
    EXPECT_TRUE(i210helper::retrieve_TX_timestamp(interface, nullptr, &time));
    EXPECT_EQ(0ULL, time.seconds);
    EXPECT_EQ(0U, time.nanoseconds);
}

}  // namespace
