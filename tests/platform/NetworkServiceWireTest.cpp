#include <gtest/gtest.h>
#include <poll.h>

#include "api/InterfaceDataManager.h"
#include "platform/NetworkService.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"
#include "tools/virtual_i210/Faults.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using Service = NetworkService<sock>;

/** Of the card's clock, far beyond what steering makes of the system clock's. */
constexpr double kRate = 1.001;

/** A service whose cable ends in a plain socket. */
struct Cable {
    explicit Cable(int vlanId, unsigned int priority = 0) {
        DbgTraceLevel = 0;
        TSynInstanceConfig config = masterConfig();
        config.VlanID = vlanId;
        config.VlanPrio = priority;
        InterfaceDataManager::getInstance(&config);
        service = std::make_unique<Service>("tsm0");
    }

    /** The next payload within some waits of the service; empty when none comes. */
    Bytes nextPayload(ptp_time_t& time) {
        Bytes buffer(2052);
        for (int tries = 0; tries < 1000; ++tries) {
            const int length = service->receive(buffer.data(), 2048, &time);
            if (length > 0) {
                buffer.resize(static_cast<std::size_t>(length));
                return buffer;
            }
        }
        return {};
    }

    StdoutCapture output;
    CardSandbox sandbox{"tsm0", "phc=0 offset_ns=3000000000 rate_ppb=1000000"};
    PeerSocket peer{"tsm0peer"};
    std::unique_ptr<Service> service;
};

/** A 44-byte Sync of domain 0 with a sequence number, behind a header in hex. */
Bytes syncFrame(const std::string& header, unsigned char sequence, unsigned char domain = 0) {
    Bytes frame = fromHex(header);
    const std::size_t start = frame.size();
    frame.resize(start + 44);
    frame[start] = 0x10;
    frame[start + 1] = 0x02;
    frame[start + 3] = 44;
    frame[start + 4] = domain;
    frame[start + 31] = sequence;
    return frame;
}

/** On every processor longer than transmit waits for a stamp. */
constexpr std::uint64_t kLateBeyondAnyWaitNs = 300'000'000;

/** True when a stamp waits on the socket's error queue. */
bool isStampPending() {
    pollfd raw{i210helper::e1000_getsockid("tsm0"), 0, 0};
    return poll(&raw, 1, 0) > 0 && (raw.revents & POLLERR) != 0;
}

const char* const kFromPeer = "0180c200000e02000000000288f7";

TEST(NetworkServiceWire, TransmitTimeIsTheCardsTimeOfTheSending) {
    Cable cable(-1);
    const Bytes sync = syncFrame("", 9);
    ptp_time_t time{};
    EXPECT_EQ(0, cable.service->transmit(sync.data(), 44, &time));
    const auto frame = cable.peer.awaitType(0);
    ASSERT_TRUE(frame);
    EXPECT_EQ(sync, frame->message());
    const auto noted = virtual_i210::latestEventFrames(1);
    ASSERT_EQ(1U, noted.size());
    EXPECT_EQ(*virtual_i210::truePhcNs("tsm0", noted[0].rawNs) / 8 * 8, toNs(time));
}

TEST(NetworkServiceWire, TaggedFramesLeaveWithTheirTag) {
    Cable cable(5, 3);
    const Bytes sync = syncFrame("", 9);
    ptp_time_t time{};
    cable.service->transmit(sync.data(), 44, &time);
    const auto frame = cable.peer.awaitType(0);
    ASSERT_TRUE(frame);
    EXPECT_EQ("0180c200000e0200000000018100600588f7", toHex(frame->bytes.data(), 18));
    EXPECT_EQ(sync, frame->message());
}

TEST(NetworkServiceWire, AtMost256BytesAreTransmitted) {
    Cable cable(-1);
    const Bytes payload(300, 0x0B);
    ptp_time_t time{};
    cable.service->transmit(payload.data(), 300, &time);
    const auto frame = cable.peer.awaitType(0x0B);
    ASSERT_TRUE(frame);
    EXPECT_EQ(Bytes(256, 0x0B), frame->message());
}

TEST(NetworkServiceWire, ReceivesAPeersFrameWithATime) {
    Cable cable(-1);
    const Bytes frame = syncFrame(kFromPeer, 1);
    const auto before = *virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs());
    ASSERT_TRUE(cable.peer.send(frame));
    ptp_time_t time{};
    EXPECT_EQ(syncFrame("", 1), cable.nextPayload(time));
    const auto after = *virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs());
    EXPECT_GE(toNs(time) + 100000, before);  // the kernel's clock steps in between
    EXPECT_LE(toNs(time), after);
}

TEST(NetworkServiceWire, ReceivesATaggedFrameOfItsVlan) {
    Cable cable(5);
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100600588f7", 1)));
    ptp_time_t time{};
    EXPECT_EQ(syncFrame("", 1), cable.nextPayload(time));
}

TEST(NetworkServiceWire, SkipsFramesOfOtherVlans) {
    Cable cable(5);
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100600688f7", 1)));
    ASSERT_TRUE(cable.peer.send(syncFrame(kFromPeer, 2)));
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100e00588f7", 3)));
    ptp_time_t time{};
    EXPECT_EQ(syncFrame("", 3), cable.nextPayload(time));
}

TEST(NetworkServiceWire, DomainVlanAndPriorityStayThoseOfTheStart) {
    Cable cable(5, 3);
    TSynInstanceConfig later = masterConfig();
    later.VlanID = 6;
    later.VlanPrio = 4;
    later.Domain = 1;
    InterfaceDataManager::getInstance(&later);
    ptp_time_t time{};
    cable.service->transmit(syncFrame("", 9).data(), 44, &time);
    const auto frame = cable.peer.awaitType(0);
    ASSERT_TRUE(frame);
    EXPECT_EQ("8100600588f7", toHex(frame->bytes.data() + 12, 6));
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100600688f7", 1, 1)));
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100600688f7", 2)));
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100600588f7", 3, 1)));
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000028100600588f7", 4)));
    EXPECT_EQ(syncFrame("", 4), cable.nextPayload(time));
}

TEST(NetworkServiceWire, OneLateStampPutsEveryLaterFrameOneBehind) {
    Cable cable(-1);
    virtual_i210::FaultOrder late;
    late.fault = virtual_i210::Fault::kTxTimestampLate;
    late.lateNs = kLateBeyondAnyWaitNs;
    virtual_i210::orderFault("tsm0", late);
    ptp_time_t time{5, 5};
    cable.service->transmit(syncFrame("", 1).data(), 44, &time);
    EXPECT_EQ(0ULL, toNs(time));
    EXPECT_EQ(1, cable.output.count("Timestamp still missing!"));
    ASSERT_TRUE(eventually(isStampPending));
    for (unsigned char sequence = 2; sequence < 6; ++sequence) {
        cable.service->transmit(syncFrame("", sequence).data(), 44, &time);
        const auto noted = virtual_i210::latestEventFrames(2);
        EXPECT_EQ(*virtual_i210::truePhcNs("tsm0", noted.at(0).rawNs) / 8 * 8, toNs(time));
    }
}

TEST(NetworkServiceWire, TheKernelDropsOtherDomainsAndProtocols) {
    Cable cable(-1);
    ASSERT_TRUE(cable.peer.send(syncFrame(kFromPeer, 1, 1)));
    ASSERT_TRUE(cable.peer.send(syncFrame("0180c200000e0200000000020800", 2)));
    ASSERT_TRUE(cable.peer.send(syncFrame(kFromPeer, 3)));
    ptp_time_t time{};
    EXPECT_EQ(syncFrame("", 3), cable.nextPayload(time));
}

TEST(NetworkServiceWire, FirstRatioIsOneAndOffsetIsSystemMinusPhc) {
    Cable cable(-1);
    i210helper::e1000_ptp_get_time("tsm0");
    long long systemTime = 0, phcTime = 0, offset = 0;
    long double ratio = 0;
    EXPECT_TRUE(cable.service->GetLocalSystemCapabilities(systemTime, phcTime, offset, ratio));
    EXPECT_EQ(1.0L, ratio);
    EXPECT_EQ(systemTime - phcTime, offset);
}

TEST(NetworkServiceWire, LaterRatioIsThePhcsRateOverTheSystemClocks) {
    constexpr long long kSpanNs = 20'000'000;
    // Readings that lie 2 us off at either end, or a system clock steered by 200 ppm.
    constexpr double kTolerance = 2e-4;
    Cable cable(-1);
    long long systemTime = 0, phcTime = 0, offset = 0;
    long double ratio = 0;
    const long long start = i210helper::e1000_ptp_get_time("tsm0");
    EXPECT_TRUE(cable.service->GetLocalSystemCapabilities(systemTime, phcTime, offset, ratio));
    while (i210helper::e1000_ptp_get_time("tsm0") < start + kSpanNs) {
    }
    EXPECT_TRUE(cable.service->GetLocalSystemCapabilities(systemTime, phcTime, offset, ratio));
    EXPECT_NEAR(kRate, static_cast<double>(ratio), kTolerance);
}

}  // namespace
