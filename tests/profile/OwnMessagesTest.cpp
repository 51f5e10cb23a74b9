#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "api/InterfaceDataManager.h"
#include "autosar/TLVObject.h"
#include "base/ptptime.h"
#include "ptp/clockitems.h"
#include "tests/profile/EventDaemon.h"
#include "tests/profile/Profiled.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"
#include "wire/ptpwire.h"

namespace {

/** A daemon under a profile, and what the other end of its cable sees. */
class Node {
public:
    Node(const TSynInstanceConfig& config, Switches switches) {
        setProfile(deployedWith(switches));
        daemon_.emplace(config, config.role != 0 ? RunningDaemon::kMasterThreads
                                                 : RunningDaemon::kSlaveThreads);
    }

    Bytes next(int type) const {
        const auto frame = peer_.awaitType(type);
        EXPECT_TRUE(frame.has_value()) << type;
        return frame ? frame->message() : Bytes(256);
    }

    /** Sends a frame with this payload. */
    void send(const Bytes& payload) const {
        Bytes frame = fromHex("0180c200000e02000000000288f7");
        frame.insert(frame.end(), payload.begin(), payload.end());
        EXPECT_TRUE(peer_.send(frame));
    }

    void forget() const { peer_.drain(); }

private:
    StdoutCapture output_;
    CardSandbox sandbox_;
    PeerSocket peer_{"tsm0peer"};
    std::optional<RunningDaemon> daemon_;
};

/** A request that sets every field whose bytes an answer could take over. */
Bytes colourfulRequest() {
    return fromHex(
        "1212003600550f7f00000000000300000e0f1011a1a2a3fffea4a5a6000a4321ee05"
        "000000000000000000000000000000000000ffff");
}

std::string hexOf(const Bytes& message, std::size_t from, std::size_t count) {
    return toHex(message.data() + from, count);
}

TEST(PortNumber, IsOneInEveryMessageOfAMaster) {
    const Node node(masterConfig(), {{"onePortNumber", 1}});
    for (const int type : {0, 8, 11}) {
        EXPECT_EQ("0001", hexOf(node.next(type), 28, 2)) << type;
    }
    node.send(colourfulRequest());
    EXPECT_EQ("0001", hexOf(node.next(3), 28, 2));
    EXPECT_EQ("0001", hexOf(node.next(10), 28, 2));
}

/** Of the ports that a slave keeps records of when its first request leaves. */
std::string portsAfterFirstRequest(TSynProfile profile) {
    profile.onePortNumber = 1;
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const ProfiledDaemon daemon(slaveConfig(), profile);
    const auto request = peer.awaitType(2);
    EXPECT_EQ("0001", request ? hexOf(request->message(), 28, 2) : "none");
    std::string ports;
    for (const auto& [key, item] : clockItems) {
        ports += std::to_string(key.second) + " ";
    }
    return ports;
}

TEST(PortNumber, IsOneInTheFirstRequestsRecord) {
    EXPECT_EQ("1 ", portsAfterFirstRequest(deployedWith({})));
}

TEST(PortNumber, IsOneInTheFirstRequestsRecordOfAnEventLoop) {
    EXPECT_EQ("1 ", portsAfterFirstRequest(eventProfile()));
}

TEST(Requests, OfAnEventLoopCarryNoTime) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const ProfiledDaemon daemon(slaveConfig(), eventProfile());
    const auto request = peer.awaitType(2);
    EXPECT_EQ("00000000000000000000", request ? hexOf(request->message(), 34, 10) : "none");
}

TEST(StandardAnswers, HaveNothingOfTheRequestButNumberAndCorrection) {
    const Node node(masterConfig(),
                    {{"anyMinorVersion", 1}, {"standardResponses", 1}, {"onePortNumber", 1}});
    node.send(colourfulRequest());
    const Bytes response = node.next(3);
    EXPECT_EQ(54U, response.size());
    EXPECT_EQ("1302003600000208000000000000000000000000020000fffe00000100014321057f",
              hexOf(response, 0, 34));
    EXPECT_EQ("a1a2a3fffea4a5a6000a", hexOf(response, 44, 10));
    const Bytes followUp = node.next(10);
    EXPECT_EQ(54U, followUp.size());
    EXPECT_EQ("1a02003600000008000000000003000000000000020000fffe00000100014321057f",
              hexOf(followUp, 0, 34));
    EXPECT_EQ("a1a2a3fffea4a5a6000a", hexOf(followUp, 44, 10));
}

TEST(StandardAnswers, NameTheResponderAsItsOtherMessagesDo) {
    const Node node(masterConfig(), {{"standardResponses", 1}});
    const std::string port = hexOf(node.next(0), 20, 10);
    EXPECT_NE("0001", port.substr(16));
    node.send(colourfulRequest());
    EXPECT_EQ(port, hexOf(node.next(3), 20, 10));
    EXPECT_EQ(port, hexOf(node.next(10), 20, 10));
}

TEST(LogInterval, IsThatOfTheConfiguration) {
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 500;
    const Node node(config, {{"configuredLogInterval", 1}});
    EXPECT_EQ(0xFF, node.next(0).at(33));
    EXPECT_EQ(0xFF, node.next(8).at(33));
    EXPECT_EQ(0x00, node.next(11).at(33));
}

TEST(LogInterval, OfARequestIsThatOfEightSyncs) {
    TSynInstanceConfig config = slaveConfig();
    config.syncInterval = 500;
    const Node node(config, {{"configuredLogInterval", 1}});
    EXPECT_EQ(2, node.next(2).at(33));
}

TEST(Timescale, OfItsOwnIsNotMarkedAsPtpTime) {
    const Node node(masterConfig(),
                    {{"timescale", TSYN_TIMESCALE_ARBITRARY}, {"standardResponses", 1}});
    for (const int type : {0, 8, 11}) {
        EXPECT_EQ(0, node.next(type).at(7)) << type;
    }
    node.send(colourfulRequest());
    EXPECT_EQ(0, node.next(3).at(7));
    EXPECT_EQ(0, node.next(10).at(7));
}

TEST(Timescale, OfTaiIsSystemTimeAndTheOffsetThatAnAnnounceTells) {
    const Node node(masterConfig(), {{"timescale", TSYN_TIMESCALE_TAI}, {"utcOffset", 40}});
    const Bytes announce = node.next(11);
    EXPECT_EQ(0x0C, announce.at(7));
    EXPECT_EQ("0028", hexOf(announce, 44, 2));
    EXPECT_EQ(0x08, node.next(0).at(7));
    const Bytes followUp = node.next(8);
    EXPECT_EQ(0x08, followUp.at(7));
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto ahead =
        static_cast<long long>(toNs(wire::loadTimestamp(followUp.data() + 34)) - toNs(now));
    EXPECT_NEAR(40.0 * kSecondNs, static_cast<double>(ahead), 0.5 * kSecondNs);
}

/** The lastGmPhaseChange of a Follow_Up in ns. */
long long phaseChange(const Bytes& followUp) {
    return static_cast<long long>(wire::loadBigEndian<8>(followUp.data() + 62));
}

TEST(TimeChanges, AreToldWithTheirSizeAndDirection) {
    const Node node(masterConfig(), {{"timeChangeMarks", 1}});
    EXPECT_EQ(std::string(36, '0'), hexOf(node.next(8), 58, 18));
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto seconds = static_cast<unsigned long long>(now.tv_sec);
    const auto nanoseconds = static_cast<unsigned int>(now.tv_nsec);

    ZebEthTSynInterface_SetHardTime(0, seconds + 100, nanoseconds, 0);
    node.forget();
    const Bytes forward = node.next(8);
    EXPECT_EQ("00010000", hexOf(forward, 58, 4));
    EXPECT_NEAR(100.0 * kSecondNs, static_cast<double>(phaseChange(forward)), 0.01 * kSecondNs);

    ZebEthTSynInterface_SetSoftTime(0, seconds, nanoseconds, 0);
    node.forget();
    const Bytes back = node.next(8);
    EXPECT_EQ("0002ffff", hexOf(back, 58, 4));
    EXPECT_NEAR(-100.0 * kSecondNs, static_cast<double>(phaseChange(back)), 0.5 * kSecondNs);
    EXPECT_EQ("000000000000", hexOf(back, 70, 6)) << "no fraction, no change of frequency";
}

TEST(AutosarTlv, OfOddLengthIsPaddedBeforeItsCrcs) {
    TSynInstanceConfig config = masterConfig();
    config.EnableAutosarExtensions = 1;
    config.timeSubTlv = 1;
    config.CrcTimeFlags = 0x3F;
    const Node node(config, {{"evenTlvs", 1}, {"onePortNumber", 1}});
    ZebEthTSynInterface_SetTimeBaseStatus(0, 8);
    Bytes followUp = node.next(8);
    ASSERT_EQ(92U, followUp.size());
    EXPECT_EQ("005c", hexOf(followUp, 2, 2));
    EXPECT_EQ("0003000c1a75fb6056762803", hexOf(followUp, 76, 12));
    EXPECT_EQ(0, followUp.back());

    followUp.resize(256);
    TLVObject tlv;
    tlv.count = 92 - 66;
    std::memcpy(tlv.bytes, followUp.data() + 76, tlv.count);
    EXPECT_EQ(
        1U, ProcessIncomingAutoSARTLVObjects(&tlv, reinterpret_cast<ptpv2hdr_t*>(followUp.data())));
    EXPECT_EQ(2U, InterfaceDataManager::getInstance()->block.subTlvCount);
}

TEST(AutosarTlv, OfEvenLengthStaysAsItIs) {
    TSynInstanceConfig config = masterConfig();
    config.EnableAutosarExtensions = 1;
    config.timeSubTlv = 1;
    config.userDataSubTlv = 1;
    const Node node(config, {{"evenTlvs", 1}});
    ZebEthTSynInterface_SetTimeBaseStatus(0, 8);
    EXPECT_EQ(98U, node.next(8).size());
}

}  // namespace
