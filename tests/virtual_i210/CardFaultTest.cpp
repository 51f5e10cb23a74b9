#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/support/Sandbox.h"
#include "tests/virtual_i210/PtpFrames.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using virtual_i210::Fault;
using virtual_i210::FaultOrder;

class CardFault : public testing::Test {
protected:
    void SetUp() override {
        sandbox_.addVethPair("tsm0", "tss0");
        setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0; tss0 cable_ns=500", 1);
        ASSERT_EQ(0, enableStamping("tsm0"));
        ASSERT_EQ(0, enableStamping("tss0"));
        sender_.emplace("tsm0", PeerSocket::kHardwareStamps);
        receiver_.emplace("tss0", PeerSocket::kHardwareStamps);
    }

    static void order(Fault fault, std::uint32_t count = 1) {
        FaultOrder order;
        order.fault = fault;
        order.count = count;
        virtual_i210::orderFault("tsm0", order);
    }

    /** The next PTP frame; frames that only carry timestamps are not for PTP receivers. */
    std::optional<PeerFrame> nextPtp(
        std::chrono::milliseconds patience = std::chrono::seconds(2)) const {
        auto frame = receiver_->receive(patience);
        while (frame && (frame->bytes.at(12) != 0x88 || frame->bytes.at(13) != 0xF7)) {
            frame = receiver_->receive(patience);
        }
        return frame;
    }

    Sandbox sandbox_;
    std::optional<PeerSocket> sender_;
    std::optional<PeerSocket> receiver_;
};

TEST_F(CardFault, LosesTransmitTimestamps) {
    order(Fault::kTxTimestampLost, 2);
    for (unsigned i = 0; i < 3; ++i) {
        ASSERT_TRUE(sender_->send(ptpFrame(kSync, i)));
        EXPECT_EQ(ptpFrame(kSync, i), nextPtp()->bytes);
        EXPECT_EQ(i == 2, sender_->transmitStamp(kAtOnce).has_value());
    }
}

TEST_F(CardFault, DelaysATransmitTimestamp) {
    FaultOrder late;
    late.fault = Fault::kTxTimestampLate;
    late.lateNs = 30'000'000;
    virtual_i210::orderFault("tsm0", late);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
    const std::uint64_t sentRawNs = virtual_i210::latestEventFrames(1).at(0).rawNs;
    EXPECT_TRUE(nextPtp());
    const auto stamp = sender_->transmitStamp();
    EXPECT_GE(virtual_i210::rawNowNs(), sentRawNs + 30'000'000u);
    ASSERT_TRUE(stamp && stamp->hardwareNs);
    EXPECT_EQ(ptpFrame(kSync, 1), stamp->bytes);
    const auto exact = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tsm0", sentRawNs));
    EXPECT_EQ(exact - exact % 8, *stamp->hardwareNs);
}

TEST_F(CardFault, LosesReceiveTimestamps) {
    FaultOrder lost;
    lost.fault = Fault::kRxTimestampLost;
    lost.messageType = kSync;
    virtual_i210::orderFault("tss0", lost);
    for (unsigned i = 0; i < 2; ++i) {
        ASSERT_TRUE(sender_->send(ptpFrame(kSync, i)));
        EXPECT_EQ(i == 1, nextPtp()->hardwareNs.has_value());
    }
}

TEST_F(CardFault, DropsAFrameBehindTheCard) {
    order(Fault::kFrameDropped);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
    EXPECT_TRUE(sender_->transmitStamp()->hardwareNs);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 2)));
    EXPECT_EQ(ptpFrame(kSync, 2), nextPtp()->bytes);
    EXPECT_EQ(1u, virtual_i210::counters("tsm0").framesSwallowed);
}

TEST_F(CardFault, DropsOnlyTheMessageTypeOrdered) {
    FaultOrder drop;
    drop.fault = Fault::kFrameDropped;
    drop.count = virtual_i210::kUntilCleared;
    drop.messageType = kFollowUp;
    virtual_i210::orderFault("tsm0", drop);
    ASSERT_TRUE(sender_->send(ptpFrame(kFollowUp, 1)));
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 2)));
    EXPECT_EQ(ptpFrame(kSync, 2), nextPtp()->bytes);
    virtual_i210::clearFaults("tsm0");
    ASSERT_TRUE(sender_->send(ptpFrame(kFollowUp, 3)));
    EXPECT_EQ(ptpFrame(kFollowUp, 3), nextPtp()->bytes);
}

TEST_F(CardFault, DuplicatesAFrame) {
    order(Fault::kFrameDuplicated);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
    const auto first = nextPtp();
    const auto second = nextPtp();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(ptpFrame(kSync, 1), first->bytes);
    EXPECT_EQ(ptpFrame(kSync, 1), second->bytes);
    EXPECT_LE(*first->hardwareNs, *second->hardwareNs);
    EXPECT_TRUE(sender_->transmitStamp(kAtOnce));
    EXPECT_FALSE(sender_->transmitStamp(kAtOnce));
}

TEST_F(CardFault, LetsTheNextFrameOvertake) {
    order(Fault::kFrameReordered);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
    EXPECT_TRUE(sender_->transmitStamp()->hardwareNs);
    EXPECT_FALSE(nextPtp(kAtOnce));
    ASSERT_TRUE(sender_->send(ptpFrame(kFollowUp, 1)));
    EXPECT_EQ(ptpFrame(kFollowUp, 1), nextPtp()->bytes);
    const auto overtaken = nextPtp();
    ASSERT_TRUE(overtaken);
    EXPECT_EQ(ptpFrame(kSync, 1), overtaken->bytes);
    EXPECT_TRUE(overtaken->hardwareNs);
}

TEST_F(CardFault, FlipsTheOrderedBit) {
    FaultOrder corrupt;
    corrupt.fault = Fault::kFrameCorrupted;
    corrupt.messageType = kFollowUp;
    corrupt.byte = 40;
    corrupt.bit = 6;
    virtual_i210::orderFault("tsm0", corrupt);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
    ASSERT_TRUE(sender_->send(ptpFrame(kFollowUp, 1)));
    Bytes damaged = ptpFrame(kFollowUp, 1);
    damaged[14 + 40] ^= 0x40;
    EXPECT_EQ(ptpFrame(kSync, 1), nextPtp()->bytes);
    EXPECT_EQ(damaged, nextPtp()->bytes);
}

TEST_F(CardFault, PullsTheCableAtEitherEnd) {
    for (const char* end : {"tsm0", "tss0"}) {
        virtual_i210::setLink(end, false);
        ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
        EXPECT_FALSE(sender_->transmitStamp(kAtOnce));
        virtual_i210::setLink(end, true);
        ASSERT_TRUE(sender_->send(ptpFrame(kSync, 2)));
        EXPECT_EQ(ptpFrame(kSync, 2), nextPtp()->bytes);
        EXPECT_TRUE(sender_->transmitStamp());
    }
}

TEST_F(CardFault, StepsTheClock) {
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 1)));
    const std::int64_t before = *nextPtp()->hardwareNs;
    virtual_i210::stepPhc("tss0", 10'000'000'000);
    ASSERT_TRUE(sender_->send(ptpFrame(kSync, 2)));
    const std::int64_t after = *nextPtp()->hardwareNs;
    EXPECT_GE(after - before, 10'000'000'000);
    EXPECT_LT(after - before, 12'000'000'000);
}

TEST_F(CardFault, RefusesTheSwitchingOfTimestamps) {
    virtual_i210::refuseHwtstamp("tsm0", EBUSY);
    EXPECT_EQ(EBUSY, enableStamping("tsm0"));
    EXPECT_EQ(0, enableStamping("tss0"));
    virtual_i210::refuseHwtstamp("tsm0", 0);
    EXPECT_EQ(0, enableStamping("tsm0"));
}

/** Result of the question for the card's timestamping, as errno or phc index. */
int askPhcIndex(const char* ifName) {
    ethtool_ts_info info{};
    info.cmd = ETHTOOL_GET_TS_INFO;
    ifreq request{};
    std::strncpy(request.ifr_name, ifName, sizeof request.ifr_name - 1);
    request.ifr_data = reinterpret_cast<char*>(&info);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(fd, SIOCETHTOOL, &request) == 0 ? info.phc_index : -1000 - errno;
    close(fd);
    return result;
}

TEST_F(CardFault, HidesTheClock) {
    EXPECT_EQ(1, askPhcIndex("tss0"));
    virtual_i210::hidePhc("tss0", true);
    EXPECT_EQ(-1, askPhcIndex("tss0"));
    EXPECT_EQ(-1, open("/dev/ptp1", O_RDWR));
    virtual_i210::hidePhc("tss0", false);
    EXPECT_EQ(1, askPhcIndex("tss0"));
}

TEST_F(CardFault, RefusesQuestions) {
    virtual_i210::refuseEthtool("tsm0", EOPNOTSUPP);
    EXPECT_EQ(-1000 - EOPNOTSUPP, askPhcIndex("tsm0"));
    EXPECT_EQ(1, askPhcIndex("tss0"));
    EXPECT_EQ(-1000 - ENODEV, askPhcIndex("nocard"));
}

TEST_F(CardFault, NamesAnInterfaceThatIsNoCard) {
    EXPECT_THROW(virtual_i210::stepPhc("eth7", 1), std::runtime_error);
    EXPECT_THROW(virtual_i210::setRatePpb("tsm0", 1e9), std::runtime_error);
    EXPECT_FALSE(virtual_i210::truePhcNs("eth7", 0));
}

}  // namespace
