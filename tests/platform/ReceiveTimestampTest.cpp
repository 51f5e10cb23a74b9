#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "platform/i210helper.h"
#include "tests/platform/SocketReply.h"
#include "tests/support/Hex.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/Vectors.h"

namespace {

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

TEST(ReceiveTimestamp, IgnoresItsTypeOnOtherLevelsAndOtherTypesOnItsLevel) {
    const timespec times[3] = {timeOf(5, 5), timeOf(5, 5), timeOf(5, 5)};
    for (const auto& [level, type] : {std::pair(SOL_PACKET, SCM_TIMESTAMPING),
                                      std::pair(SOL_SOCKET, SCM_TIMESTAMPING_PKTINFO)}) {
        EXPECT_EQ(0ULL, receiveOnce(Reply{frameOf(58), {}}.with(level, type, times)).ns) << level;
    }
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
        EXPECT_EQ(512U, message->msg_controllen);
        EXPECT_EQ(16U, message->msg_namelen);
        message->msg_controllen = 0;
        return ++calls < 3 ? KernelSeam::refuse(EINTR) : Reply{frameOf(20), {}}.fill(message);
    };
    Bytes buffer(68);
    int length = 64;
    getRxTimestampedData(kSocket, buffer.data(), &length);
    EXPECT_EQ(3, calls);
    EXPECT_EQ(20, length);
}

TEST(ReceiveTimestamp, LengthIsZeroWhileItWaits) {
    KernelSeam kernel;
    Bytes buffer(68);
    int length = 64;
    std::vector<int> seen;
    kernel.recvmsg = [&](int, msghdr* message, int) -> std::optional<ssize_t> {
        seen.push_back(length);
        length = 7;
        return seen.size() < 2 ? KernelSeam::refuse(EINTR) : Reply{frameOf(20), {}}.fill(message);
    };
    getRxTimestampedData(kSocket, buffer.data(), &length);
    EXPECT_EQ((std::vector<int>{0, 0}), seen);
}

TEST(ReceiveTimestamp, YieldsTheProcessorAfterEveryAttempt) {
    KernelSeam kernel;
    std::string calls;
    kernel.schedYield = [&] {
        calls += "y";
        return 0;
    };
    kernel.recvmsg = [&](int, msghdr* message, int) -> std::optional<ssize_t> {
        calls += "r";
        return calls.size() < 2 ? KernelSeam::refuse(EINTR) : Reply{frameOf(20), {}}.fill(message);
    };
    Bytes buffer(68);
    int length = 64;
    getRxTimestampedData(kSocket, buffer.data(), &length);
    EXPECT_EQ("ryry", calls);
}

TEST(ReceiveTimestamp, ANegativeCapacityIsNone) {
    KernelSeam kernel;
    kernel.recvmsg = [&](int, msghdr* message, int) {
        EXPECT_EQ(0U, message->msg_iov->iov_len);
        return Reply{frameOf(20), {}}.fill(message);
    };
    Bytes buffer(68, 0xEE);
    int length = -1;
    getRxTimestampedData(kSocket, buffer.data(), &length);
    EXPECT_EQ(0, length);
    EXPECT_EQ(Bytes(68, 0xEE), buffer);
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

}  // namespace
