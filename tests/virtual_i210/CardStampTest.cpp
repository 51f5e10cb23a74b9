#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/net_tstamp.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Sandbox.h"
#include "tests/virtual_i210/PtpFrames.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

constexpr std::int64_t kGranularityNs = 8;
constexpr std::uint64_t kCableNs = 500;

std::int64_t shown(const char* ifName, std::uint64_t rawNs) {
    const auto phcNs = static_cast<std::int64_t>(*virtual_i210::truePhcNs(ifName, rawNs));
    return phcNs - phcNs % kGranularityNs;
}

std::uint64_t lastSentRawNs() {
    return virtual_i210::latestEventFrames(1).at(0).rawNs;
}

class CardStamp : public testing::Test {
protected:
    void SetUp() override {
        sandbox_.addVethPair("tsm0", "tss0");
        setenv("VIRTUAL_I210",
               "state=/dev/shm/cards seed=11; tsm0 phc=0 wander_ppb=20;"
               "tss0 phc=1 rate_ppb=37000 offset_ns=1500000000 cable_ns=500 wander_ppb=20",
               1);
        ASSERT_EQ(0, enableStamping("tsm0"));
        ASSERT_EQ(0, enableStamping("tss0"));
    }

    Sandbox sandbox_;
};

TEST_F(CardStamp, OfBothEndsAreTheSameInstantButForTheCable) {
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    for (unsigned i = 0; i < 50; ++i) {
        ASSERT_TRUE(sender.send(ptpFrame(0, i)));
        const std::uint64_t rawNs = lastSentRawNs();
        const auto sent = sender.transmitStamp();
        const auto received = receiver.receive();
        ASSERT_TRUE(sent && received);
        EXPECT_EQ(ptpFrame(0, i), sent->bytes);
        EXPECT_EQ(shown("tsm0", rawNs), sent->hardwareNs);
        EXPECT_EQ(std::nullopt, sent->softwareNs);
        EXPECT_EQ(ptpFrame(0, i), received->bytes);
        EXPECT_EQ(shown("tss0", rawNs + kCableNs), received->hardwareNs);
        EXPECT_EQ(std::nullopt, received->softwareNs);
    }
    EXPECT_EQ(50u, virtual_i210::counters("tsm0").txTimestamps);
    EXPECT_EQ(50u, virtual_i210::counters("tss0").rxTimestamps);
    EXPECT_EQ(0u, virtual_i210::counters("tss0").rxFallbacks);
}

TEST_F(CardStamp, OfEqualFramesAreTheirOwn) {
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    std::vector<std::uint64_t> sentRawNs;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(sender.send(ptpFrame(0, 7)));
        sentRawNs.push_back(lastSentRawNs());
    }
    for (const std::uint64_t rawNs : sentRawNs) {
        EXPECT_EQ(shown("tss0", rawNs + kCableNs), receiver.receive()->hardwareNs);
        EXPECT_EQ(shown("tsm0", rawNs), sender.transmitStamp()->hardwareNs);
    }
}

TEST_F(CardStamp, OfATaggedFrameIsFoundAfterTheTagIsStripped) {
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    ASSERT_TRUE(sender.send(taggedPtpFrame(2, 9, 0xE005)));
    const std::uint64_t rawNs = lastSentRawNs();
    const auto received = receiver.receive();
    ASSERT_TRUE(received);
    EXPECT_EQ(taggedPtpFrame(2, 9, 0xE005), received->bytes);
    EXPECT_EQ(shown("tss0", rawNs + kCableNs), received->hardwareNs);
    EXPECT_EQ(taggedPtpFrame(2, 9, 0xE005), sender.transmitStamp()->bytes);
}

/** The filter knows event messages; sending is stamped for whoever asked. */
TEST_F(CardStamp, OfAGeneralMessageIsGivenToTheSenderAlone) {
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    const std::uint64_t before = virtual_i210::rawNowNs();
    ASSERT_TRUE(sender.send(ptpFrame(8, 1)));
    const std::uint64_t after = virtual_i210::rawNowNs();
    const auto sent = sender.transmitStamp();
    const auto received = receiver.receive();
    ASSERT_TRUE(sent && sent->hardwareNs && received);
    EXPECT_EQ(ptpFrame(8, 1), sent->bytes);
    EXPECT_GE(*sent->hardwareNs, shown("tsm0", before));
    EXPECT_LE(*sent->hardwareNs, shown("tsm0", after));
    EXPECT_EQ(std::nullopt, received->hardwareNs);
    EXPECT_TRUE(virtual_i210::latestEventFrames(1).empty());
}

TEST_F(CardStamp, WakesPollOnlyWhenThere) {
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    EXPECT_EQ(std::nullopt, sender.transmitStamp(kAtOnce));
    ASSERT_TRUE(sender.send(ptpFrame(0, 1)));
    EXPECT_TRUE(sender.transmitStamp(kAtOnce));
    EXPECT_EQ(std::nullopt, sender.transmitStamp(kAtOnce));
}

TEST_F(CardStamp, NeedsTheSocketOption) {
    const PeerSocket sender("tsm0");
    const PeerSocket receiver("tss0");
    ASSERT_TRUE(sender.send(ptpFrame(0, 1)));
    EXPECT_EQ(std::nullopt, receiver.receive()->hardwareNs);
    EXPECT_EQ(std::nullopt, sender.transmitStamp(kAtOnce));
}

TEST_F(CardStamp, ComesBesideASoftwareTimestampWhenBothAreAsked) {
    constexpr unsigned kBoth =
        PeerSocket::kHardwareStamps | SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", kBoth);
    ASSERT_TRUE(sender.send(ptpFrame(0, 1)));
    const auto received = receiver.receive();
    ASSERT_TRUE(received);
    EXPECT_TRUE(received->hardwareNs);
    EXPECT_TRUE(received->softwareNs);
    unsigned flags = 0;
    socklen_t length = sizeof flags;
    ASSERT_EQ(0, getsockopt(receiver.descriptor(), SOL_SOCKET, SO_TIMESTAMPING, &flags, &length));
    EXPECT_EQ(kBoth, flags);
}

/** A child that never heard of the cards sends through its own raw socket. */
TEST_F(CardStamp, OfAFrameFromOutsideFallsBackToTheKernels) {
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    const std::uint64_t before = virtual_i210::rawNowNs();
    const Bytes frame = ptpFrame(0, 3);
    std::string packet;
    for (const std::uint8_t byte : frame) {
        char text[8];
        std::snprintf(text, sizeof text, "\\x%02x", byte);
        packet += text;
    }
    Sandbox::run({"python3", "-c",
                  "import socket; s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW);"
                  "s.bind(('tsm0', 0)); s.send(b'" +
                      packet + "')"});
    const std::uint64_t after = virtual_i210::rawNowNs();
    const auto received = receiver.receive();
    ASSERT_TRUE(received && received->hardwareNs);
    EXPECT_GE(*received->hardwareNs, shown("tss0", before));
    EXPECT_LE(*received->hardwareNs, shown("tss0", after));
    EXPECT_EQ(1u, virtual_i210::counters("tss0").rxFallbacks);
}

TEST_F(CardStamp, CrossesProcesses) {
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    const pid_t child = fork();
    if (child == 0) {
        const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
        const bool sent = sender.send(ptpFrame(3, 4));
        _exit(sent && sender.transmitStamp() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    const auto received = receiver.receive();
    ASSERT_TRUE(received);
    EXPECT_EQ(shown("tss0", lastSentRawNs() + kCableNs), received->hardwareNs);
}

TEST_F(CardStamp, IsNotGivenToForeignSockets) {
    const int receiver = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof address));
    socklen_t length = sizeof address;
    ASSERT_EQ(0, getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length));
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_EQ(5, sendto(sender, "hello", 5, 0, reinterpret_cast<sockaddr*>(&address), length));
    char text[16] = {};
    ASSERT_EQ(5, recv(receiver, text, sizeof text, 0));
    EXPECT_STREQ("hello", text);
    close(sender);
    close(receiver);
    EXPECT_EQ(0u, virtual_i210::counters("tsm0").ptpFramesSent);
}

/** Blocks in recvmsg; what it owns must be released when it is cancelled there. */
void* receiveForEver(void* argument) {
    struct Mark {
        bool* released;
        ~Mark() { *released = true; }
    };
    auto& [port, released] = *static_cast<std::pair<const PeerSocket*, bool>*>(argument);
    const Mark mark{&released};
    char data[64];
    iovec part{data, sizeof data};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    static_cast<void>(recvmsg(port->descriptor(), &message, 0));
    return nullptr;
}

TEST_F(CardStamp, LetsAWaitingReceiverBeCancelled) {
    const PeerSocket port("tss0", PeerSocket::kHardwareStamps);
    std::pair<const PeerSocket*, bool> shared{&port, false};
    pthread_t receiver{};
    ASSERT_EQ(0, pthread_create(&receiver, nullptr, receiveForEver, &shared));
    ASSERT_EQ(0, pthread_cancel(receiver));
    void* result = nullptr;
    ASSERT_EQ(0, pthread_join(receiver, &result));
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_TRUE(shared.second);
}

TEST(CardCable, LetsNoFrameArriveBeforeItsTime) {
    Sandbox sandbox;
    sandbox.addVethPair("tsm0", "tss0");
    setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0; tss0 cable_ns=20000000", 1);
    ASSERT_EQ(0, enableStamping("tss0"));
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    ASSERT_TRUE(sender.send(ptpFrame(0, 1)));
    ASSERT_TRUE(receiver.receive());
    EXPECT_GE(virtual_i210::rawNowNs(), lastSentRawNs() + 20'000'000u);
}

TEST(CardJitter, StaysInItsBoundsAndVaries) {
    Sandbox sandbox;
    sandbox.addVethPair("tsm0", "tss0");
    setenv("VIRTUAL_I210",
           "state=/dev/shm/cards seed=5; tsm0; tss0 cable_ns=500 jitter_ns=40 granularity_ns=1", 1);
    ASSERT_EQ(0, enableStamping("tss0"));
    const PeerSocket sender("tsm0", PeerSocket::kHardwareStamps);
    const PeerSocket receiver("tss0", PeerSocket::kHardwareStamps);
    std::int64_t least = 1000;
    std::int64_t most = -1000;
    for (unsigned i = 0; i < 200; ++i) {
        ASSERT_TRUE(sender.send(ptpFrame(0, i)));
        const auto exact =
            static_cast<std::int64_t>(*virtual_i210::truePhcNs("tss0", lastSentRawNs() + kCableNs));
        const std::int64_t jitter = *receiver.receive()->hardwareNs - exact;
        least = std::min(least, jitter);
        most = std::max(most, jitter);
    }
    EXPECT_GE(least, -40);
    EXPECT_LE(most, 40);
    EXPECT_LT(least, -20);
    EXPECT_GT(most, 20);
}

}  // namespace
