#include "platform/NetworkService.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ptp_clock.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "tests/platform/ServiceOnCard.h"
#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"

namespace {

using Texts = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

TEST(NetworkServiceConstruction, LogsEachStep) {
    const ServiceOnCard card;
    Texts lines = card.output.texts();
    ASSERT_EQ(7U, lines.size());
    EXPECT_EQ("Creating network service ...", lines[0]);
    EXPECT_EQ("Socket fd uif.s: 0 ...", lines[1]);
    EXPECT_EQ("Enable I210 Timestamping on interface 'tsm0'", lines[2]);
    EXPECT_EQ("Socket fd uif.s: " + std::to_string(i210helper::e1000_getsockid("")) + " ...",
              lines[5]);
    EXPECT_EQ("setsockopt() returned: 0 ...", lines[6]);
    for (const std::size_t own : {0, 1, 5, 6}) {
        EXPECT_EQ("DEBUG", card.output.lines()[own].level) << own;
    }
    EXPECT_EQ("NetworkService", card.output.lines()[0].function);
    EXPECT_EQ("initBpf", card.output.lines()[6].function);
}

TEST(NetworkServiceConstruction, ASecondServiceUsesTheSocketOfTheFirst) {
    const ServiceOnCard card;
    const Service second("tsm0");
    EXPECT_EQ(1, card.output.count("Enable I210 Timestamping"));
    EXPECT_EQ(3, card.output.count("Socket fd uif.s: " +
                                   std::to_string(i210helper::e1000_getsockid("")) + " ..."));
}

TEST(NetworkServiceConstruction, ARefusedFilterIsReportedAndTheServiceGoesOn) {
    ServiceOnCard card;
    card.kernel.setsockopt = [](int, int, int option) -> std::optional<int> {
        return option == SO_ATTACH_FILTER ? std::optional<int>(KernelSeam::refuse(ENOMEM))
                                          : std::nullopt;
    };
    const Service second("tsm0");
    const Texts lines = card.output.texts();
    EXPECT_EQ("setsockopt() returned: -1 ...", lines[lines.size() - 2]);
    EXPECT_EQ("setsockopt() failed ... Reason is:Cannot allocate memory", lines.back());
    EXPECT_EQ("ERROR", card.output.lines().back().level);
}

TEST(NetworkServiceConstruction, CompletesWithoutAnInterface) {
    const Sandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    Service service("absent0");
    EXPECT_EQ(1, output.count("Socket fd uif.s: -1 ...\n"));
    EXPECT_EQ(1, output.count("Reason is:Bad file descriptor"));
    unsigned char buffer[2052];
    ptp_time_t time{7, 7};
    EXPECT_EQ(0, service.receive(buffer, 2048, &time));
    EXPECT_EQ(7ULL, time.seconds);
    const sockaddr_ll to{};
    EXPECT_EQ(-1, service.sendto(kPayload.data(), 5, 0, reinterpret_cast<const sockaddr*>(&to),
                                 sizeof to));
}

TEST(NetworkServiceConstruction, AFailedSetUpIsNotRepeated) {
    const Sandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    const Service first("absent0");
    const Service second("absent0");
    EXPECT_EQ(1, output.count("Enable I210 Timestamping"));
    EXPECT_EQ(3, output.count("Socket fd uif.s: -1 ...\n"));
}

TEST(NetworkServiceConstruction, KeepsTheNameBoundedAndInside) {
    const Sandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    KernelSeam kernel;
    std::set<std::string> asked;
    kernel.ioctl = [&](int, unsigned long, void* argument) -> std::optional<int> {
        const char* const name = static_cast<ifreq*>(argument)->ifr_name;
        asked.emplace(name, strnlen(name, IFNAMSIZ));
        return std::nullopt;
    };
    const std::string name(200, 'x');
    Service service(name.c_str());
    EXPECT_EQ(std::string(47, 'x'), GetInterfaceName(&service));
    EXPECT_EQ(std::set<std::string>{std::string(15, 'x')}, asked);
}

TEST(NetworkServiceReceiving, LosesFourteenBytesUntagged) {
    ServiceOnCard card;
    Bytes buffer;
    ptp_time_t time{};
    EXPECT_EQ(5, card.receive(framed("0180c200000e02000000000288f7", kPayload), buffer, time));
    EXPECT_EQ(toHex(kPayload), toHex(buffer.data(), 5));
    EXPECT_EQ(1700000000ULL, time.seconds);
    EXPECT_EQ(987654321U, time.nanoseconds);
}

TEST(NetworkServiceReceiving, LosesEighteenBytesOnItsVlanWhateverThePriority) {
    ServiceOnCard card(5, 3);
    Bytes buffer;
    ptp_time_t time{};
    for (const char* tag : {"81000005", "8100e005", "8100f005"}) {
        EXPECT_EQ(5, card.receive(
                         framed(std::string("0180c200000e020000000002") + tag + "88f7", kPayload),
                         buffer, time));
        EXPECT_EQ(toHex(kPayload), toHex(buffer.data(), 5));
    }
}

TEST(NetworkServiceReceiving, ForeignVlansAreDroppedWithoutATime) {
    ServiceOnCard card(5, 3);
    Bytes buffer;
    for (const char* tag : {"81000006", "8100e004", "88a80005", "88f70005"}) {
        ptp_time_t time{9, 9};
        EXPECT_EQ(0, card.receive(
                         framed(std::string("0180c200000e020000000002") + tag + "88f7", kPayload),
                         buffer, time));
        EXPECT_EQ(0ULL, time.seconds);
        EXPECT_EQ(0U, time.nanoseconds);
    }
}

TEST(NetworkServiceReceiving, VlanId4096NeverMatches) {
    ServiceOnCard card(4096, 0);
    Bytes buffer;
    ptp_time_t time{};
    EXPECT_EQ(0,
              card.receive(framed("0180c200000e0200000000028100100088f7", kPayload), buffer, time));
}

TEST(NetworkServiceReceiving, VlanId0IsAVlan) {
    ServiceOnCard card(0, 0);
    Bytes buffer;
    ptp_time_t time{};
    const std::string addresses = "0180c200000e020000000002";
    EXPECT_EQ(5, card.receive(framed(addresses + "8100e00088f7", kPayload), buffer, time));
    EXPECT_EQ(toHex(kPayload), toHex(buffer.data(), 5));
    EXPECT_EQ(0, card.receive(framed(addresses + "8100000188f7", kPayload), buffer, time));
    EXPECT_EQ(0, card.receive(framed(addresses + "88f7", kPayload), buffer, time));
}

TEST(NetworkServiceReceiving, AnUntaggedPortTakesTheTagOfAFrameForItsPayload) {
    ServiceOnCard card(-1);
    Bytes buffer;
    ptp_time_t time{};
    EXPECT_EQ(9,
              card.receive(framed("0180c200000e0200000000028100e00588f7", kPayload), buffer, time));
    EXPECT_EQ("e00588f7" + toHex(kPayload), toHex(buffer.data(), 9));
    EXPECT_EQ(1700000000ULL, time.seconds);
}

TEST(NetworkServiceReceiving, OwnFramesAreIgnoredButTimed) {
    ServiceOnCard card;
    Bytes buffer;
    ptp_time_t time{};
    EXPECT_EQ(0, card.receive(framed("0180c200000e02000000000188f7", kPayload), buffer, time));
    EXPECT_EQ(1700000000ULL, time.seconds);
}

TEST(NetworkServiceReceiving, FramesWithoutAPayloadAreNothing) {
    ServiceOnCard card;
    Bytes buffer;
    ptp_time_t time{};
    const Bytes header = fromHex("0180c200000e02000000000288f7");
    for (std::size_t length = 0; length <= header.size(); ++length) {
        EXPECT_EQ(0, card.receive({header.begin(), header.begin() + static_cast<long>(length)},
                                  buffer, time));
    }
}

TEST(NetworkServiceReceiving, WaitsFiveMillisecondsForNothing) {
    ServiceOnCard card;
    Bytes buffer(2052);
    ptp_time_t time{3, 3};
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(0, card.service->receive(buffer.data(), 2048, &time));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(5));
    EXPECT_EQ(3ULL, time.seconds);
}

TEST(NetworkServiceReceiving, WaitsOnItsSocketNoLongerThanFiveMilliseconds) {
    ServiceOnCard card;
    std::vector<std::pair<int, int>> waits;
    card.kernel.poll = [&](pollfd* descriptor, int milliseconds) {
        waits.emplace_back(descriptor->fd, milliseconds);
        return 0;
    };
    Bytes buffer(2052);
    ptp_time_t time{};
    EXPECT_EQ(0, card.service->receive(buffer.data(), 2048, &time));
    EXPECT_EQ((std::vector<std::pair<int, int>>{{i210helper::e1000_getsockid(""), 5}}), waits);
}

TEST(NetworkServiceReceiving, APendingTransmitTimestampIsNoFrame) {
    ServiceOnCard card;
    card.kernel.poll = [](pollfd* descriptor, int) {
        EXPECT_EQ(POLLIN, descriptor->events);
        descriptor->revents = POLLERR;
        return 1;
    };
    int reads = 0;
    card.kernel.recvmsg = [&](int, msghdr*, int) {
        ++reads;
        return 0;
    };
    Bytes buffer(2052);
    ptp_time_t time{};
    EXPECT_EQ(0, card.service->receive(buffer.data(), 2048, &time));
    EXPECT_EQ(0, reads);
}

/** The rate ratio of a cross-timestamp of these readings. */
long double ratioAt(ServiceOnCard& card, long long systemNs, long long phcNs) {
    card.kernel.ioctl = [=](int, unsigned long, void* argument) -> std::optional<int> {
        auto& offset = *static_cast<ptp_sys_offset*>(argument);
        for (int i = 0; i < 51; ++i) {
            const long long ns = i % 2 == 0 ? systemNs + i : phcNs;
            offset.ts[i].sec = ns / 1000000000;
            offset.ts[i].nsec = static_cast<unsigned>(ns % 1000000000);
        }
        return 0;
    };
    long long systemTime = 0, phcTime = 0, difference = 0;
    long double ratio = 0;
    EXPECT_TRUE(card.service->GetLocalSystemCapabilities(systemTime, phcTime, difference, ratio));
    EXPECT_EQ(systemNs, systemTime);
    EXPECT_EQ(phcNs, phcTime);
    EXPECT_EQ(systemNs - phcNs, difference);
    card.kernel.ioctl = nullptr;
    return ratio;
}

/** A service on a card whose clock is open. */
struct ServiceWithClock : ServiceOnCard {
    ServiceWithClock() { i210helper::e1000_ptp_get_time("tsm0"); }
};

TEST(NetworkServiceCapabilities, RatioIsThatSinceThePreviousCall) {
    ServiceWithClock card;
    for (const auto& vector : vectors("local_capabilities")) {
        EXPECT_EQ(vector["ratio"]["x87"].get<std::string>(),
                  toX87(ratioAt(card, toS64(vector["systemTime"]), toS64(vector["phcTime"]))));
    }
}

TEST(NetworkServiceCapabilities, RatioIsOneAfterAReadingOfZeroOnEitherClock) {
    ServiceWithClock card;
    EXPECT_EQ(1.0L, ratioAt(card, 1000, 0));
    EXPECT_EQ(1.0L, ratioAt(card, 2000, 1000));
    EXPECT_EQ(2.0L, ratioAt(card, 3000, 3000));
    EXPECT_EQ(-1.0L, ratioAt(card, 0, 6000));
    EXPECT_EQ(1.0L, ratioAt(card, 2000, 8000));
}

TEST(NetworkServiceCapabilities, RatioOfAClockThatWasSetBackIsNegative) {
    ServiceWithClock card;
    ratioAt(card, 1000, 5000);
    EXPECT_EQ(-2.0L, ratioAt(card, 2000, 3000));
    EXPECT_EQ(-0.5L, ratioAt(card, 1000, 3500));
}

TEST(NetworkServiceIdentity, IsTheAddressWithFFFEInTheMiddle) {
    ServiceOnCard card;
    for (const auto& vector : vectors("clock_identity")) {
        card.kernel.ioctl = [&](int, unsigned long request, void* argument) -> std::optional<int> {
            const Bytes mac = fromHex(vector["mac"].get<std::string>());
            if (request != SIOCGIFHWADDR) {
                return std::nullopt;
            }
            std::copy(mac.begin(), mac.end(), static_cast<ifreq*>(argument)->ifr_hwaddr.sa_data);
            return 0;
        };
        Service service("tsm0");
        const unsigned char* const identity = BuildPTPClockIdentityFromMacAdress(&service);
        EXPECT_EQ(vector["identity"].get<std::string>(), toHex(identity, 8));
        EXPECT_EQ(identity, BuildPTPClockIdentityFromMacAdress(card.service.get()));
    }
}

/** Notes the descriptor that the hardware address is asked on. */
struct AddressQuery {
    AddressQuery() {
        kernel.ioctl = [this](int queried, unsigned long request,
                              void* argument) -> std::optional<int> {
            if (request == SIOCGIFHWADDR) {
                descriptor = queried;
                family = static_cast<ifreq*>(argument)->ifr_addr.sa_family;
            }
            return std::nullopt;
        };
    }

    bool isOpen() const { return fcntl(descriptor, F_GETFD) != -1; }

    KernelSeam kernel;
    int descriptor = -1;
    int family = -1;
};

TEST(NetworkServiceIdentity, TheQueriesSocketIsClosedOnSuccess) {
    const CardSandbox sandbox;
    const AddressQuery query;
    unsigned char mac[6] = {};
    EXPECT_EQ(0, macaddress("tsm0", mac));
    EXPECT_GT(query.descriptor, 2);
    EXPECT_EQ(2, query.family);
    EXPECT_FALSE(query.isOpen());
}

TEST(NetworkServiceIdentity, TheQueriesSocketStaysOpenOnFailure) {
    const Sandbox sandbox;
    const AddressQuery query;
    unsigned char mac[6] = {};
    errno = 0;
    EXPECT_EQ(-1, macaddress("absent0", mac));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_TRUE(query.isOpen());
}

TEST(NetworkServiceIdentity, AddressOfTheInterface) {
    const CardSandbox sandbox;
    unsigned char mac[6] = {};
    EXPECT_EQ(0, macaddress("tsm0", mac));
    EXPECT_EQ("020000000001", toHex(mac, 6));
}

TEST(NetworkServiceIdentity, AMissingInterfaceGivesTheFailedCallsResult) {
    const Sandbox sandbox;
    unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(-1, macaddress("absent0", mac));
    EXPECT_EQ("010203040506", toHex(mac, 6));
}

TEST(NetworkServiceLifetime, NeitherCloseNorDestructionClosesTheSocket) {
    ServiceOnCard card;
    card.service->Close();
    EXPECT_STREQ("std::exception", card.service->what());
    card.service.reset();
    int type = 0;
    socklen_t length = sizeof type;
    EXPECT_EQ(0, getsockopt(i210helper::e1000_getsockid(""), SOL_SOCKET, SO_TYPE, &type, &length));
}

}  // namespace
