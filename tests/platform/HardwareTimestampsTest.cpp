#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/i210helper.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;

constexpr int kSocket = 77;  // no descriptor of this process; the seam answers for it

timespec timeOf(time_t seconds, long nanoseconds) {
    timespec time{};
    time.tv_sec = seconds;
    time.tv_nsec = nanoseconds;
    return time;
}

/** What one receive call returns: a frame and control messages. */
struct Reply {
    Bytes frame;
    Bytes control;

    template <typename Value>
    Reply& with(int level, int type, const Value& value) {
        const std::size_t at = control.size();
        control.resize(at + CMSG_SPACE(sizeof value));
        cmsghdr header{};
        header.cmsg_len = CMSG_LEN(sizeof value);
        header.cmsg_level = level;
        header.cmsg_type = type;
        std::memcpy(&control[at], &header, sizeof header);
        std::memcpy(&control[at + CMSG_LEN(0)], &value, sizeof value);
        return *this;
    }

    Reply& withTimes(const timespec& software, const timespec& hardware) {
        const timespec times[3] = {software, software, hardware};
        return with(SOL_SOCKET, SCM_TIMESTAMPING, times);
    }

    Reply& withTag(unsigned int status, unsigned short tpid, unsigned short tci) {
        tpacket_auxdata aux{};
        aux.tp_status = status;
        aux.tp_vlan_tpid = tpid;
        aux.tp_vlan_tci = tci;
        return with(SOL_PACKET, PACKET_AUXDATA, aux);
    }

    ssize_t fill(msghdr* message) const {
        const std::size_t count = std::min(frame.size(), message->msg_iov->iov_len);
        std::copy_n(frame.begin(), count, static_cast<unsigned char*>(message->msg_iov->iov_base));
        std::copy(control.begin(), control.end(),
                  static_cast<unsigned char*>(message->msg_control));
        message->msg_controllen = control.size();
        return static_cast<ssize_t>(count);
    }
};

struct Received {
    unsigned long long ns;
    Bytes frame;
};

Received receiveOnce(const Reply& reply) {
    KernelSeam kernel;
    kernel.recvmsg = [&](int, msghdr* message, int) { return reply.fill(message); };
    Bytes buffer(260, 0xEE);
    int length = 256;
    const unsigned long long ns = getRxTimestampedData(kSocket, buffer.data(), &length);
    buffer.resize(static_cast<std::size_t>(length));
    return {ns, buffer};
}

Bytes frameOf(std::size_t size) {
    Bytes frame(size);
    for (std::size_t i = 0; i < size; ++i) {
        frame[i] = static_cast<unsigned char>(i);
    }
    return frame;
}

unsigned long long transmitStampFrom(const Reply& reply) {
    KernelSeam kernel;
    kernel.recvmsg = [&](int, msghdr* message, int) { return reply.fill(message); };
    return getTxTimestamp(kSocket);
}

TEST(ReceiveTimestamp, IsTheThirdOfTheThreeTimes) {
    Reply reply{frameOf(58), {}};
    reply.withTimes(timeOf(1, 1), timeOf(1700000000, 987654321));
    const Received received = receiveOnce(reply);
    EXPECT_EQ(1700000000987654321ULL, received.ns);
    EXPECT_EQ(frameOf(58), received.frame);
}

TEST(ReceiveTimestamp, IsZeroWithoutTheControlMessage) {
    EXPECT_EQ(0ULL, receiveOnce({frameOf(58), {}}).ns);
    EXPECT_EQ(
        0ULL,
        receiveOnce(Reply{frameOf(58), {}}.with(SOL_SOCKET, SCM_TIMESTAMPNS, timeOf(5, 5))).ns);
}

TEST(ReceiveTimestamp, IsZeroWhenTheControlMessageIsCutShort) {
    Reply reply{frameOf(58), {}};
    reply.withTimes(timeOf(1, 1), timeOf(2, 2));
    reply.control.resize(CMSG_LEN(sizeof(timespec)));
    EXPECT_EQ(0ULL, receiveOnce(reply).ns);
    reply.control.resize(sizeof(cmsghdr) - 1);
    EXPECT_EQ(0ULL, receiveOnce(reply).ns);
}

TEST(ReceiveTimestamp, IgnoresAHeaderShorterThanItself) {
    Reply reply{frameOf(58), {}};
    reply.withTimes(timeOf(1, 1), timeOf(2, 2));
    const cmsghdr broken{};
    std::memcpy(reply.control.data(), &broken, sizeof broken);
    EXPECT_EQ(0ULL, receiveOnce(reply).ns);
}

TEST(ReceiveTimestamp, ZeroesTheBufferBeforeTheFrame) {
    KernelSeam kernel;
    Bytes seen;
    kernel.recvmsg = [&](int, msghdr* message, int) {
        const auto* data = static_cast<unsigned char*>(message->msg_iov->iov_base);
        seen.assign(data, data + message->msg_iov->iov_len);
        return Reply{frameOf(10), {}}.fill(message);
    };
    Bytes buffer(68, 0xEE);
    int length = 64;
    getRxTimestampedData(kSocket, buffer.data(), &length);
    EXPECT_EQ(Bytes(64, 0), seen);
    EXPECT_EQ(0xEE, buffer[64]);
}

TEST(ReceiveTimestamp, TriesAgainWhenInterrupted) {
    KernelSeam kernel;
    int calls = 0;
    kernel.recvmsg = [&](int socket, msghdr* message, int flags) -> std::optional<ssize_t> {
        EXPECT_EQ(kSocket, socket);
        EXPECT_EQ(0, flags);
        EXPECT_GE(message->msg_controllen, 512U);
        return ++calls < 3 ? KernelSeam::refuse(EINTR) : Reply{frameOf(20), {}}.fill(message);
    };
    Bytes buffer(68);
    int length = 64;
    getRxTimestampedData(kSocket, buffer.data(), &length);
    EXPECT_EQ(3, calls);
    EXPECT_EQ(20, length);
}

TEST(VlanTag, IsPutBackBehindTheAddresses) {
    for (const auto& vector : vectors("vlan_reinsertion")) {
        Reply reply{fromHex(vector["in"].get<std::string>()), {}};
        reply.withTag(TP_STATUS_VLAN_VALID | TP_STATUS_VLAN_TPID_VALID, 0x8100, 0x6005);
        const Received received = receiveOnce(reply);
        EXPECT_EQ(vector["out"].get<std::string>(), toHex(received.frame));
        EXPECT_EQ(vector["lengthOut"].get<std::size_t>(), received.frame.size());
    }
}

TEST(VlanTag, EitherStatusBitIsEnough) {
    for (const unsigned status : {TP_STATUS_VLAN_VALID, TP_STATUS_VLAN_TPID_VALID}) {
        const Received received =
            receiveOnce(Reply{frameOf(20), {}}.withTag(status, 0x88A8, 0xE005));
        EXPECT_EQ("000102030405060708090a0b88a8e0050c0d0e0f10111213", toHex(received.frame));
    }
}

TEST(VlanTag, IsNotInventedWithoutStatusOrTpid) {
    EXPECT_EQ(20U, receiveOnce(Reply{frameOf(20), {}}.withTag(0, 0x8100, 5)).frame.size());
    EXPECT_EQ(20U,
              receiveOnce(Reply{frameOf(20), {}}.withTag(TP_STATUS_VLAN_VALID, 0, 5)).frame.size());
    EXPECT_EQ(20U, receiveOnce(Reply{frameOf(20), {}}.withTag(TP_STATUS_CSUMNOTREADY, 0x8100, 5))
                       .frame.size());
}

TEST(VlanTag, NeedsWholeAddresses) {
    EXPECT_EQ(
        11U,
        receiveOnce(Reply{frameOf(11), {}}.withTag(TP_STATUS_VLAN_VALID, 0x8100, 5)).frame.size());
    EXPECT_EQ(
        16U,
        receiveOnce(Reply{frameOf(12), {}}.withTag(TP_STATUS_VLAN_VALID, 0x8100, 5)).frame.size());
}

TEST(VlanTag, FitsIntoTheSpareBytesOfAFullBuffer) {
    const Received received =
        receiveOnce(Reply{frameOf(256), {}}.withTag(TP_STATUS_VLAN_VALID, 0x8100, 5));
    EXPECT_EQ(260U, received.frame.size());
    EXPECT_EQ(0xFF, received.frame[259]);
}

TEST(TransmitTimestamp, IsTheThirdOfTheThreeTimes) {
    Reply reply{frameOf(58), {}};
    reply.withTimes(timeOf(9, 9), timeOf(1700000000, 5));
    EXPECT_EQ(1700000000000000005ULL, transmitStampFrom(reply));
}

TEST(TransmitTimestamp, IsTheLastOfSeveral) {
    Reply reply{{}, {}};
    reply.withTimes(timeOf(0, 0), timeOf(1, 1)).withTimes(timeOf(0, 0), timeOf(2, 2));
    EXPECT_EQ(2000000002ULL, transmitStampFrom(reply));
}

TEST(TransmitTimestamp, IsZeroWhenTheQueueHoldsNone) {
    EXPECT_EQ(0ULL, transmitStampFrom({frameOf(58), {}}));
}

TEST(TransmitTimestamp, IsReadFromTheErrorQueueOfTheGivenSocket) {
    KernelSeam kernel;
    int calls = 0;
    kernel.recvmsg = [&](int socket, msghdr* message, int flags) -> std::optional<ssize_t> {
        EXPECT_EQ(kSocket, socket);
        EXPECT_EQ(MSG_ERRQUEUE, flags);
        EXPECT_EQ(256U, message->msg_iov->iov_len);
        return ++calls < 4 ? KernelSeam::refuse(EAGAIN)
                           : Reply{{}, {}}.withTimes(timeOf(0, 0), timeOf(3, 3)).fill(message);
    };
    EXPECT_EQ(3000000003ULL, getTxTimestamp(kSocket));
    EXPECT_EQ(4, calls);
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

TEST(TransmitTimestamp, IsClearedWhenNoneCame) {
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.recvmsg = [](int, msghdr*, int) { return KernelSeam::refuse(EAGAIN); };
    UInterface interface {};
    ptp_time_t time{99, 99};
    EXPECT_TRUE(i210helper::retrieve_TX_timestamp(interface, nullptr, &time));
    EXPECT_EQ(0ULL, time.seconds);
    EXPECT_EQ(0U, time.nanoseconds);
}

}  // namespace
