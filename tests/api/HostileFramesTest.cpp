#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/Seed.h"
#include "tests/support/StdoutCapture.h"

namespace {

constexpr std::size_t kHeader = 14;
constexpr std::size_t kLongest = 2048;
constexpr std::size_t kBetweenProbes = 16;

/** A daemon under attack from the other end of its cable. */
class Attack {
public:
    explicit Attack(bool isMaster)
        : random_(seededGenerator()),
          daemon_(isMaster ? masterConfig() : slaveConfig(),
                  isMaster ? RunningDaemon::kMasterThreads : RunningDaemon::kSlaveThreads) {}

    /** Sends a frame of random bytes with the addresses, protocol and domain of PTP. */
    void sendFrame(std::size_t length, unsigned char typeByte, bool plausible) {
        Bytes frame(std::max<std::size_t>(length, kHeader + 34));
        std::generate(frame.begin(), frame.end(), [this] { return byte(); });
        const Bytes header = fromHex("0180c200000e02000000000288f7");
        std::copy(header.begin(), header.end(), frame.begin());
        frame[kHeader] = typeByte;
        frame[kHeader + 4] = 0;
        if (plausible) {
            frame[kHeader + 1] = 2;
            frame[kHeader + 2] = 0;
        }
        frame.resize(length);
        const bool sent = peer_.send(frame);
        EXPECT_EQ(length >= kHeader, sent) << length;
        if (++sinceProbe_ == kBetweenProbes) {
            sinceProbe_ = 0;
            ASSERT_TRUE(answersProbe());
        }
    }

    /** The daemon has handled everything sent so far once it answers a request. */
    bool answersProbe() {
        Bytes request = fromHex("0180c200000e02000000000288f712020036");
        request.resize(kHeader + 54);
        request[kHeader + 20] = 0x77;  // clock identity of the prober
        request[kHeader + 29] = 1;
        ++sequence_;
        request[kHeader + 30] = static_cast<unsigned char>(sequence_ >> 8);
        request[kHeader + 31] = static_cast<unsigned char>(sequence_);
        if (!peer_.send(request)) {
            return false;
        }
        for (;;) {
            const auto frame = peer_.awaitType(kPdelayResp);
            if (!frame) {
                return false;
            }
            const Bytes answer = frame->message();
            if (answer.size() >= 54 && answer[44] == 0x77 && answer[30] == (sequence_ >> 8) &&
                answer[31] == (sequence_ & 0xFF)) {
                return true;
            }
        }
    }

private:
    unsigned char byte() { return static_cast<unsigned char>(random_()); }

    StdoutCapture output_;
    struct WideCable {
        CardSandbox sandbox;
        WideCable() {
            Sandbox::run({"ip", "link", "set", "tsm0", "mtu", "3000"});
            Sandbox::run({"ip", "link", "set", "tsm0peer", "mtu", "3000"});
        }
    } cable_;
    PeerSocket peer_{"tsm0peer"};
    std::mt19937_64 random_;
    RunningDaemon daemon_;
    std::size_t sinceProbe_ = 0;
    unsigned int sequence_ = 0;
};

class HostileFrames : public testing::TestWithParam<bool> {};

TEST_P(HostileFrames, OfEveryLengthLeaveTheDaemonRunning) {
    Attack attack(GetParam());
    for (std::size_t length = 0; length <= kLongest; ++length) {
        attack.sendFrame(length, static_cast<unsigned char>(length * 37), length % 2 == 0);
    }
    EXPECT_TRUE(attack.answersProbe());
}

TEST_P(HostileFrames, OfEveryTypeByteLeaveTheDaemonRunning) {
    Attack attack(GetParam());
    for (unsigned int type = 0; type < 256; ++type) {
        for (const std::size_t length : {15U, 48U, 58U, 68U, 90U, 255U, 1514U}) {
            attack.sendFrame(length, static_cast<unsigned char>(type), type % 3 != 0);
        }
    }
    EXPECT_TRUE(attack.answersProbe());
}

INSTANTIATE_TEST_SUITE_P(Attack, HostileFrames, testing::Bool(), [](const auto& info) {
    return std::string(info.param ? "Master" : "Slave");
});

}  // namespace
