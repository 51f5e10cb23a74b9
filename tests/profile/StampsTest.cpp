#include "profile/Stamps.h"

#include <gtest/gtest.h>
#include <linux/net_tstamp.h>

#include <cerrno>
#include <map>

#include "include/gPtpTimeQuality.h"
#include "profile/Quality.h"
#include "tests/platform/SocketReply.h"
#include "tests/support/KernelSeam.h"

namespace {

constexpr int kSharedSocket = 70;
constexpr int kOwnSocket = 71;
constexpr int kHeader = 14;
constexpr unsigned char kSyncByte = 0x10;
constexpr unsigned char kFollowUpByte = 0x18;

/** The kernel's side: it notes by which socket frames leave and gives back what a test queues. */
class Card : public testing::Test {
protected:
    Card() {
        kernel.socket = [this](int, int, int protocol) {
            EXPECT_EQ(0, protocol);
            ++socketsOpened;
            return kOwnSocket;
        };
        kernel.bind = [](int, const sockaddr*) { return 0; };
        kernel.setsockopt = [](int, int, int) { return 0; };
        kernel.sendto = [this](int socket, const void*, std::size_t length, int, const sockaddr*) {
            sentBy = socket;
            return static_cast<ssize_t>(length);
        };
        kernel.recvmsg = [this](int socket, msghdr* message, int flags) -> std::optional<ssize_t> {
            EXPECT_EQ(kOwnSocket, socket);
            EXPECT_NE(0, flags & MSG_ERRQUEUE);
            if (next == queue.size()) {
                return KernelSeam::refuse(EAGAIN);
            }
            return queue[next++].fill(message);
        };
        kernel.poll = [this](pollfd* descriptor, int) {
            EXPECT_EQ(kOwnSocket, descriptor->fd);
            nowNs += 2000000;
            ++polls;
            return 0;
        };
        kernel.clockGettime = [this](clockid_t, timespec* time) {
            *time = timeOf(static_cast<time_t>(nowNs / 1000000000),
                           static_cast<long>(nowNs % 1000000000));
            return 0;
        };
    }

    static Bytes frameOf(unsigned char type, unsigned char sequence) {
        Bytes frame(kHeader + 44);
        frame[kHeader] = type;
        frame[kHeader + 31] = sequence;
        return frame;
    }

    void send(Bytes frame) {
        const UInterface port{kSharedSocket, "card", 5};
        stamps::sendFrame(port, frame.data(), static_cast<int>(frame.size()), kHeader);
    }

    void comesBack(const Bytes& frame, long ns) {
        Reply reply{frame, {}};
        queue.push_back(reply.withTimes(timeOf(0, 0), timeOf(3, ns)));
    }

    static unsigned int strays() {
        gPtpTimeQuality quality{};
        quality::fill(quality);
        return quality.strayStamps;
    }

    KernelSeam kernel;
    std::vector<Reply> queue;
    std::size_t next = 0;
    int sentBy = 0;
    int socketsOpened = 0;
    int polls = 0;
    long long nowNs = 1000000000;
};

TEST_F(Card, StampsEventFramesOnASocketOfTheThread) {
    send(frameOf(kSyncByte, 1));
    EXPECT_EQ(kOwnSocket, sentBy);
    comesBack(frameOf(kSyncByte, 1), 7);
    EXPECT_EQ(3000000007ULL, stamps::transmitTimestamp(kSharedSocket));
    EXPECT_EQ(0, polls);
    send(frameOf(kSyncByte, 2));
    EXPECT_EQ(1, socketsOpened);
}

TEST_F(Card, SendsGeneralFramesByTheSharedSocketAndWaitsForNoStamp) {
    send(frameOf(kFollowUpByte, 1));
    EXPECT_EQ(kSharedSocket, sentBy);
    comesBack(frameOf(kFollowUpByte, 1), 7);
    EXPECT_EQ(0ULL, stamps::transmitTimestamp(kSharedSocket));
    EXPECT_EQ(0U, next);
}

TEST_F(Card, LeavesAStampOfAnotherFrameOut) {
    send(frameOf(kSyncByte, 2));
    comesBack(frameOf(kSyncByte, 1), 7);
    comesBack(frameOf(kSyncByte, 2), 8);
    EXPECT_EQ(3000000008ULL, stamps::transmitTimestamp(kSharedSocket));
    EXPECT_EQ(1U, strays());
}

TEST_F(Card, GivesUpAfterTenMilliseconds) {
    send(frameOf(kSyncByte, 1));
    EXPECT_EQ(0ULL, stamps::transmitTimestamp(kSharedSocket));
    EXPECT_EQ(5, polls);
}

TEST_F(Card, TakesAFrameThatLostItsTagOnTheWay) {
    Bytes tagged = frameOf(kSyncByte, 1);
    tagged.insert(tagged.begin() + 12, {0x81, 0x00, 0x60, 0x05});
    const UInterface port{kSharedSocket, "card", 5};
    stamps::sendFrame(port, tagged.data(), static_cast<int>(tagged.size()), kHeader + 4);
    comesBack(frameOf(kSyncByte, 1), 9);
    EXPECT_EQ(3000000009ULL, stamps::transmitTimestamp(kSharedSocket));
}

TEST_F(Card, HasNoStampForAFrameThatWasNotSent) {
    kernel.sendto = [](int, const void*, std::size_t, int, const sockaddr*) {
        return KernelSeam::refuse(ENETDOWN);
    };
    send(frameOf(kSyncByte, 1));
    EXPECT_EQ(0ULL, stamps::transmitTimestamp(kSharedSocket));
    EXPECT_EQ(0, polls);
}

TEST_F(Card, OpensAnotherSocketForAnInterfaceMadeAnew) {
    send(frameOf(kSyncByte, 1));
    Bytes frame = frameOf(kSyncByte, 2);
    const UInterface port{kSharedSocket, "card", 6};
    stamps::sendFrame(port, frame.data(), static_cast<int>(frame.size()), kHeader);
    EXPECT_EQ(2, socketsOpened);
}

}  // namespace
