#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/i210helper.h"
#include "tests/support/Daemon.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using Texts = std::vector<std::string>;

const std::string kFirstLine = "Enable I210 Timestamping on interface 'tsm0'";

std::string bindingLine() {
    return "Binding to interface " + std::to_string(if_nametoindex("tsm0")) + " ...";
}

int intOption(int socket, int level, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(socket, level, option, &value, &length);
    return value;
}

short flagsOf(const char* name) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    const int query = socket(AF_INET, SOCK_DGRAM, 0);
    ioctl(query, SIOCGIFFLAGS, &request);
    close(query);
    return request.ifr_flags;
}

/** The set-up fails with these lines and leaves -1 behind. */
void expectFailure(const StdoutCapture& output, const Texts& lines) {
    EXPECT_EQ(-1, EnableI210Timestamping("tsm0"));
    EXPECT_EQ(-1, i210helper::e1000_getsockid("tsm0"));
    EXPECT_EQ(lines, output.texts());
    EXPECT_EQ("ERROR", output.lines().back().level);
}

TEST(TimestampingSetUp, ReturnsTheProcessWideSocketAndLogsEachStep) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    EXPECT_EQ(0, i210helper::e1000_getsockid("tsm0"));
    const int socket = EnableI210Timestamping("tsm0");
    EXPECT_GT(socket, 0);
    EXPECT_EQ(socket, i210helper::e1000_getsockid("whatever"));
    EXPECT_EQ((Texts{kFirstLine, bindingLine(), "enabled: 1 optlen: 4"}), output.texts());
    EXPECT_EQ("ALWAYS", output.lines()[0].level);
    EXPECT_EQ("DEBUG", output.lines()[1].level);
    EXPECT_EQ("ALWAYS", output.lines()[2].level);
}

TEST(TimestampingSetUp, TurnsOnCardAndSocketTimestamps) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    const int socket = EnableI210Timestamping("tsm0");
    EXPECT_TRUE(virtual_i210::cards().at(0).txStampsOn);
    EXPECT_EQ(static_cast<unsigned>(HWTSTAMP_FILTER_PTP_V2_EVENT),
              virtual_i210::cards().at(0).rxFilter);
    EXPECT_EQ(0x45, intOption(socket, SOL_SOCKET, SO_TIMESTAMPING));
    EXPECT_EQ(1, intOption(socket, SOL_SOCKET, SO_TIMESTAMPNS));
    EXPECT_EQ(1, intOption(socket, SOL_PACKET, PACKET_AUXDATA));
    EXPECT_EQ(1, intOption(socket, SOL_SOCKET, SO_REUSEADDR));
    EXPECT_NE(0, flagsOf("tsm0") & IFF_PROMISC);
}

TEST(TimestampingSetUp, KeepsTheOtherFlagsOfTheInterface) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    const short before = flagsOf("tsm0");
    ASSERT_NE(0, before & IFF_UP);
    EnableI210Timestamping("tsm0");
    EXPECT_EQ(before | IFF_PROMISC, flagsOf("tsm0"));
}

TEST(TimestampingSetUp, TakesEveryProtocolOfTheInterface) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    KernelSeam kernel;
    int opened = -1;
    sockaddr_ll bound{};
    kernel.socket = [&](int domain, int, int protocol) -> std::optional<int> {
        opened = domain == AF_PACKET ? protocol : opened;
        return std::nullopt;
    };
    kernel.bind = [&](int, const sockaddr* address) -> std::optional<int> {
        std::memcpy(&bound, address, sizeof bound);
        return std::nullopt;
    };
    EnableI210Timestamping("tsm0");
    EXPECT_EQ(0x0300, opened);
    EXPECT_EQ(AF_PACKET, bound.sll_family);
    EXPECT_EQ(0x0300, bound.sll_protocol);
    EXPECT_EQ(static_cast<int>(if_nametoindex("tsm0")), bound.sll_ifindex);
}

TEST(TimestampingSetUp, AsksTheKernelInOrder) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    Texts calls;
    KernelSeam kernel;
    const auto note = [&calls](const std::string& call) -> std::optional<int> {
        calls.push_back(call);
        return std::nullopt;
    };
    kernel.socket = [&](int domain, int type, int) {
        return note("socket " + std::to_string(domain) + " " + std::to_string(type));
    };
    kernel.bind = [&](int, const sockaddr*) { return note("bind"); };
    kernel.ioctl = [&](int, unsigned long request, void*) {
        return note("ioctl " + std::to_string(request & 0xFF));
    };
    kernel.setsockopt = [&](int, int, int option) { return note("set " + std::to_string(option)); };
    kernel.getsockopt = [&](int, int, int option) { return note("get " + std::to_string(option)); };
    EnableI210Timestamping("tsm0");
    EXPECT_EQ((Texts{"socket 17 3", "ioctl 19", "ioctl 20", "set 2", "ioctl 51", "bind", "ioctl 16",
                     "ioctl 176", "set 37", "set 35", "set 8", "get 8"}),
              calls);
}

TEST(TimestampingSetUp, FailsWithoutASocket) {
    const StdoutCapture output;
    const StdoutCapture errors(2);
    KernelSeam kernel;
    kernel.socket = [](int, int, int) { return KernelSeam::refuse(EPERM); };
    EXPECT_EQ(-1, EnableI210Timestamping("tsm0"));
    EXPECT_EQ(-1, i210helper::e1000_getsockid("tsm0"));
    EXPECT_EQ(Texts{kFirstLine}, output.texts());
    EXPECT_EQ("listener: socket: Operation not permitted\n", errors.text());
}

TEST(TimestampingSetUp, FailsForAMissingInterface) {
    const Sandbox sandbox;
    const StdoutCapture output;
    expectFailure(output, {kFirstLine, "ioctl() failed! Reason is: No such device"});
}

TEST(TimestampingSetUp, FailsWhenTheIndexIsRefused) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.ioctl = [](int, unsigned long request, void*) -> std::optional<int> {
        return request == SIOCGIFINDEX ? std::optional<int>(KernelSeam::refuse(ENODEV))
                                       : std::nullopt;
    };
    expectFailure(output, {kFirstLine, "ioctl() failed! Reason is: No such device"});
}

TEST(TimestampingSetUp, FailsWhenBindingIsRefused) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.bind = [](int, const sockaddr*) { return KernelSeam::refuse(ENETDOWN); };
    expectFailure(output, {kFirstLine, bindingLine(), "errno: Network is down"});
}

TEST(TimestampingSetUp, FailsWhenTheNameIsRefused) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.ioctl = [](int, unsigned long request, void*) -> std::optional<int> {
        return request == SIOCGIFNAME ? std::optional<int>(KernelSeam::refuse(ENODEV))
                                      : std::nullopt;
    };
    expectFailure(output, {kFirstLine, bindingLine(), "errno: No such device"});
}

TEST(TimestampingSetUp, FailsWhenTheCardRefusesAndLeavesItPromiscuous) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    virtual_i210::refuseHwtstamp("tsm0", ERANGE);
    expectFailure(output, {kFirstLine, bindingLine(), "errno: Numerical result out of range"});
    EXPECT_NE(0, flagsOf("tsm0") & IFF_PROMISC);
}

class RefusedOption : public testing::TestWithParam<int> {};

TEST_P(RefusedOption, EndsTheSetUp) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.setsockopt = [](int, int, int option) -> std::optional<int> {
        return option == GetParam() ? std::optional<int>(KernelSeam::refuse(ENOPROTOOPT))
                                    : std::nullopt;
    };
    expectFailure(output, {kFirstLine, bindingLine(), "errno: Protocol not available"});
}

INSTANTIATE_TEST_SUITE_P(TimestampingSetUp, RefusedOption,
                         testing::Values(SO_TIMESTAMPING, SO_TIMESTAMPNS, PACKET_AUXDATA));

TEST(TimestampingSetUp, FailsWhenReadingBackIsRefused) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.getsockopt = [](int, int, int) { return KernelSeam::refuse(ENOPROTOOPT); };
    expectFailure(output, {kFirstLine, bindingLine(), "errno: Protocol not available"});
}

TEST(TimestampingSetUp, AFailureClosesTheSocket) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    int bound = -1;
    KernelSeam kernel;
    kernel.bind = [&](int socket, const sockaddr*) {
        bound = socket;
        return KernelSeam::refuse(ENETDOWN);
    };
    EnableI210Timestamping("tsm0");
    ASSERT_GT(bound, 0);
    EXPECT_EQ(-1, fcntl(bound, F_GETFD));
}

TEST(TimestampingSetUp, ADescriptorOfZeroIsMovedAway) {
    const CardSandbox sandbox;
    const StdoutCapture output;
    close(0);
    const int socket = EnableI210Timestamping("tsm0");
    EXPECT_GT(socket, 2);
    EXPECT_EQ(-1, fcntl(0, F_GETFD));
}

int refusedSocket = -1;

void tellWhetherTheSocketIsClosed() {
    std::fputs(fcntl(refusedSocket, F_GETFD) == -1 ? "closed at exit" : "open at exit", stderr);
}

TEST(TimestampingSetUpDeathTest, ARefusedReuseOfTheAddressEndsTheProcessWithOne) {
    const CardSandbox sandbox;
    KernelSeam kernel;
    kernel.setsockopt = [](int socket, int, int option) -> std::optional<int> {
        refusedSocket = socket;
        return option == SO_REUSEADDR ? std::optional<int>(KernelSeam::refuse(EPERM))
                                      : std::nullopt;
    };
    EXPECT_EXIT(
        {
            std::atexit(tellWhetherTheSocketIsClosed);
            EnableI210Timestamping("tsm0");
        },
        testing::ExitedWithCode(1), "setsockopt: Operation not permitted\nclosed at exit");
}

}  // namespace
