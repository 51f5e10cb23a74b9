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

#include "PtpPort.h"
#include "tests/support/Sandbox.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using virtual_i210::Fault;
using virtual_i210::FaultOrder;

constexpr unsigned kSync = 0;
constexpr unsigned kFollowUp = 8;

class CardFault : public testing::Test {
protected:
    void SetUp() override {
        sandbox_.addVethPair("tsm0", "tss0");
        setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0; tss0 cable_ns=500", 1);
        ASSERT_EQ(enableStamping("tsm0"), 0);
        ASSERT_EQ(enableStamping("tss0"), 0);
        sender_.emplace("tsm0");
        receiver_.emplace("tss0");
    }

    static void order(Fault fault, std::uint32_t count = 1) {
        FaultOrder order;
        order.fault = fault;
        order.count = count;
        virtual_i210::orderFault("tsm0", order);
    }

    // The next PTP frame; frames that only carry timestamps are not for PTP receivers.
    std::optional<ReceivedFrame> nextPtp(int timeoutMs = 2000) const {
        auto frame = receiver_->receive(timeoutMs);
        while (frame && (frame->bytes.at(12) != 0x88 || frame->bytes.at(13) != 0xF7)) {
            frame = receiver_->receive(timeoutMs);
        }
        return frame;
    }

    Sandbox sandbox_;
    std::optional<PtpPort> sender_;
    std::optional<PtpPort> receiver_;
};

TEST_F(CardFault, LosesTransmitTimestamps) {
    order(Fault::kTxTimestampLost, 2);
    for (unsigned i = 0; i < 3; ++i) {
        sender_->send(ptpFrame(kSync, i));
        EXPECT_EQ(nextPtp()->bytes, ptpFrame(kSync, i));
        EXPECT_EQ(sender_->transmitStamp(0).has_value(), i == 2);
    }
}

TEST_F(CardFault, DelaysATransmitTimestamp) {
    FaultOrder late;
    late.fault = Fault::kTxTimestampLate;
    late.lateNs = 30'000'000;
    virtual_i210::orderFault("tsm0", late);
    sender_->send(ptpFrame(kSync, 1));
    const std::uint64_t sentRawNs = virtual_i210::latestEventFrames(1).at(0).rawNs;
    EXPECT_TRUE(nextPtp());
    const auto stamp = sender_->transmitStamp();
    EXPECT_GE(virtual_i210::rawNowNs(), sentRawNs + 30'000'000u);
    ASSERT_TRUE(stamp && stamp->hardwareNs);
    EXPECT_EQ(stamp->bytes, ptpFrame(kSync, 1));
    const auto exact = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tsm0", sentRawNs));
    EXPECT_EQ(*stamp->hardwareNs, exact - exact % 8);
}

TEST_F(CardFault, DropsAFrameBehindTheCard) {
    order(Fault::kFrameDropped);
    sender_->send(ptpFrame(kSync, 1));
    EXPECT_TRUE(sender_->transmitStamp()->hardwareNs);
    sender_->send(ptpFrame(kSync, 2));
    EXPECT_EQ(nextPtp()->bytes, ptpFrame(kSync, 2));
    EXPECT_EQ(virtual_i210::counters("tsm0").framesSwallowed, 1u);
}

TEST_F(CardFault, DropsOnlyTheMessageTypeOrdered) {
    FaultOrder drop;
    drop.fault = Fault::kFrameDropped;
    drop.count = virtual_i210::kUntilCleared;
    drop.messageType = kFollowUp;
    virtual_i210::orderFault("tsm0", drop);
    sender_->send(ptpFrame(kFollowUp, 1));
    sender_->send(ptpFrame(kSync, 2));
    EXPECT_EQ(nextPtp()->bytes, ptpFrame(kSync, 2));
    virtual_i210::clearFaults("tsm0");
    sender_->send(ptpFrame(kFollowUp, 3));
    EXPECT_EQ(nextPtp()->bytes, ptpFrame(kFollowUp, 3));
}

TEST_F(CardFault, DuplicatesAFrame) {
    order(Fault::kFrameDuplicated);
    sender_->send(ptpFrame(kSync, 1));
    const auto first = nextPtp();
    const auto second = nextPtp();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->bytes, ptpFrame(kSync, 1));
    EXPECT_EQ(second->bytes, ptpFrame(kSync, 1));
    EXPECT_LE(*first->hardwareNs, *second->hardwareNs);
    EXPECT_TRUE(sender_->transmitStamp(0));
    EXPECT_FALSE(sender_->transmitStamp(0));
}

TEST_F(CardFault, LetsTheNextFrameOvertake) {
    order(Fault::kFrameReordered);
    sender_->send(ptpFrame(kSync, 1));
    EXPECT_TRUE(sender_->transmitStamp()->hardwareNs);
    EXPECT_FALSE(nextPtp(0));
    sender_->send(ptpFrame(kFollowUp, 1));
    EXPECT_EQ(nextPtp()->bytes, ptpFrame(kFollowUp, 1));
    const auto overtaken = nextPtp();
    ASSERT_TRUE(overtaken);
    EXPECT_EQ(overtaken->bytes, ptpFrame(kSync, 1));
    EXPECT_TRUE(overtaken->hardwareNs);
}

TEST_F(CardFault, FlipsTheOrderedBit) {
    FaultOrder corrupt;
    corrupt.fault = Fault::kFrameCorrupted;
    corrupt.messageType = kFollowUp;
    corrupt.byte = 40;
    corrupt.bit = 6;
    virtual_i210::orderFault("tsm0", corrupt);
    sender_->send(ptpFrame(kSync, 1));
    sender_->send(ptpFrame(kFollowUp, 1));
    Bytes damaged = ptpFrame(kFollowUp, 1);
    damaged[14 + 40] ^= 0x40;
    EXPECT_EQ(nextPtp()->bytes, ptpFrame(kSync, 1));
    EXPECT_EQ(nextPtp()->bytes, damaged);
}

TEST_F(CardFault, PullsTheCableAtEitherEnd) {
    for (const char* end : {"tsm0", "tss0"}) {
        virtual_i210::setLink(end, false);
        sender_->send(ptpFrame(kSync, 1));
        EXPECT_FALSE(sender_->transmitStamp(0));
        virtual_i210::setLink(end, true);
        sender_->send(ptpFrame(kSync, 2));
        EXPECT_EQ(nextPtp()->bytes, ptpFrame(kSync, 2));
        EXPECT_TRUE(sender_->transmitStamp());
    }
}

TEST_F(CardFault, StepsTheClock) {
    sender_->send(ptpFrame(kSync, 1));
    const std::int64_t before = *nextPtp()->hardwareNs;
    virtual_i210::stepPhc("tss0", 10'000'000'000);
    sender_->send(ptpFrame(kSync, 2));
    const std::int64_t after = *nextPtp()->hardwareNs;
    EXPECT_GE(after - before, 10'000'000'000);
    EXPECT_LT(after - before, 12'000'000'000);
}

TEST_F(CardFault, RefusesTheSwitchingOfTimestamps) {
    virtual_i210::refuseHwtstamp("tsm0", EBUSY);
    EXPECT_EQ(enableStamping("tsm0"), EBUSY);
    EXPECT_EQ(enableStamping("tss0"), 0);
    virtual_i210::refuseHwtstamp("tsm0", 0);
    EXPECT_EQ(enableStamping("tsm0"), 0);
}

// Result of the question for the card's timestamping, as errno or phc index.
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
    EXPECT_EQ(askPhcIndex("tss0"), 1);
    virtual_i210::hidePhc("tss0", true);
    EXPECT_EQ(askPhcIndex("tss0"), -1);
    EXPECT_EQ(open("/dev/ptp1", O_RDWR), -1);
    virtual_i210::hidePhc("tss0", false);
    EXPECT_EQ(askPhcIndex("tss0"), 1);
}

TEST_F(CardFault, RefusesQuestions) {
    virtual_i210::refuseEthtool("tsm0", EOPNOTSUPP);
    EXPECT_EQ(askPhcIndex("tsm0"), -1000 - EOPNOTSUPP);
    EXPECT_EQ(askPhcIndex("tss0"), 1);
    EXPECT_EQ(askPhcIndex("nocard"), -1000 - ENODEV);
}

TEST_F(CardFault, NamesAnInterfaceThatIsNoCard) {
    EXPECT_THROW(virtual_i210::stepPhc("eth7", 1), std::runtime_error);
    EXPECT_THROW(virtual_i210::setRatePpb("tsm0", 1e9), std::runtime_error);
    EXPECT_FALSE(virtual_i210::truePhcNs("eth7", 0));
}

}  // namespace
