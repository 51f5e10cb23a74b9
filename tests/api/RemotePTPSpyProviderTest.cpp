#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>

#include "api/DaemonState.h"
#include "base/DbgLog.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "timebase/osipc.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr unsigned short kSpyPort = 319;
constexpr std::size_t kRecordSize = 236;
constexpr Milliseconds kPatience{20000};
constexpr Milliseconds kPeriod{525};

/** A tool that asks the provider of this machine. */
class SpyTool {
public:
    explicit SpyTool(unsigned short port = 0) : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address = loopback(port);
        EXPECT_EQ(0, bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address));
        socklen_t size = sizeof address;
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    ~SpyTool() { close(socket_); }
    SpyTool(const SpyTool&) = delete;
    SpyTool& operator=(const SpyTool&) = delete;

    void send(const std::string& text) const {
        const sockaddr_in provider = loopback(kSpyPort);
        EXPECT_EQ(static_cast<ssize_t>(text.size()),
                  ::sendto(socket_, text.data(), text.size(), 0,
                           reinterpret_cast<const sockaddr*>(&provider), sizeof provider));
    }

    /** The next reply, empty when none comes. */
    Bytes receive(Milliseconds patience = kPatience) const {
        pollfd readable{socket_, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(patience.count())) <= 0) {
            return {};
        }
        Bytes reply(1024);
        const ssize_t size = recv(socket_, reply.data(), reply.size(), 0);
        reply.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return reply;
    }

    void drain() const {
        while (!receive(Milliseconds(0)).empty()) {
        }
    }

    unsigned short port() const { return port_; }

private:
    /** Not the address of localhost, since the provider serves every address. */
    static sockaddr_in loopback(unsigned short port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
        return address;
    }

    int socket_;
    unsigned short port_ = 0;
};

/** Whether some UDP socket of this network listens on the provider's port. */
bool isPortTaken() {
    std::ifstream table("/proc/self/net/udp");
    for (std::string line; std::getline(table, line);) {
        if (line.find(":013F ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

/** The provider on a thread of its own, which ends with the test. */
class RunningProvider {
public:
    RunningProvider() { pthread_create(&thread_, nullptr, RemotePTPSpyProvider, nullptr); }
    ~RunningProvider() {
        pthread_cancel(thread_);
        pthread_join(thread_, nullptr);
    }
    RunningProvider(const RunningProvider&) = delete;
    RunningProvider& operator=(const RunningProvider&) = delete;

private:
    pthread_t thread_{};
};

/** A network of its own, and a record that is not mapped yet. */
class SpyProvider : public testing::Test {
protected:
    SpyProvider() {
        DbgTraceLevel = 0;
        MasterOrSlave = '2';
        shm_name = "/eth1";
    }

    /** The record, once the provider has mapped it. */
    static gPtpTimeDataStruct& record() { return *OSipc::map.at("wm0"); }

    TimeSandbox sandbox_;
    StdoutCapture output_;
};

TEST_F(SpyProvider, SendsNothingBeforeTheFirstDatagram) {
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    EXPECT_TRUE(tool.receive(2 * kPeriod + Milliseconds(200)).empty());
    EXPECT_TRUE(OSipc::map.empty());
    tool.send("?");
    EXPECT_EQ(kRecordSize, tool.receive().size());
}

TEST_F(SpyProvider, RepliesWithTheRecordAsItLiesInMemory) {
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("?");
    EXPECT_EQ(std::string(2 * kRecordSize, '0'), toHex(tool.receive()));
    record().linkDelay = 0x0102030405060708;
    record().unused172[63] = 0xEE;
    tool.drain();
    const Bytes reply = tool.receive();
    EXPECT_EQ(toHex(reinterpret_cast<unsigned char*>(&record()), kRecordSize), toHex(reply));
    EXPECT_EQ("0807060504030201", toHex(reply.data(), 8));
}

TEST_F(SpyProvider, KeepsASilentPeerInformedAboutTwiceASecond) {
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("?");
    ASSERT_EQ(kRecordSize, tool.receive().size());
    const Clock::time_point begin = Clock::now();
    constexpr int kReplies = 4;
    for (int i = 0; i < kReplies; ++i) {
        ASSERT_EQ(kRecordSize, tool.receive().size());
    }
    const auto took = std::chrono::duration_cast<Milliseconds>(Clock::now() - begin);
    // The first one may have lain there for a while when the watch was started.
    EXPECT_GE(took, (kReplies - 1) * kPeriod);
    EXPECT_LE(took, 2 * kReplies * kPeriod);
}

TEST_F(SpyProvider, AnswersEveryFurtherDatagramAtOnce) {
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    constexpr int kDatagrams = 40;
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < kDatagrams; ++i) {
        tool.send("?");
        ASSERT_EQ(kRecordSize, tool.receive().size());
    }
    EXPECT_LT(Clock::now() - begin, kDatagrams * kPeriod / 4);
}

TEST_F(SpyProvider, TurnsToASecondPeer) {
    const SpyTool first;
    const SpyTool second;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    first.send("first");
    ASSERT_EQ(kRecordSize, first.receive().size());
    second.send("second");
    ASSERT_EQ(kRecordSize, second.receive().size());
    first.drain();
    EXPECT_EQ(kRecordSize, second.receive().size());
    EXPECT_EQ(kRecordSize, second.receive().size());
    EXPECT_TRUE(first.receive(Milliseconds(0)).empty());
}

TEST_F(SpyProvider, ReportsDatagramsAboveTraceLevel0Alone) {
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("silent");
    ASSERT_EQ(kRecordSize, tool.receive().size());
    DbgTraceLevel = 1;
    tool.send("loud");
    EXPECT_TRUE(awaitPrinted(output_, "2Received packet from 127.0.0.2:" +
                                          std::to_string(tool.port()) + "\nData: loud\n\n\n"));
    EXPECT_EQ(0, output_.count("silent"));
    DbgTraceLevel = 0;
    tool.drain();
    tool.send("silent again");
    ASSERT_EQ(kRecordSize, tool.receive().size());
    EXPECT_EQ(1, output_.count("Received packet"));
}

TEST_F(SpyProvider, CutsTheReportOfALongDatagramThatHasNoEnd) {
    DbgTraceLevel = 1;
    const SpyTool tool(40000);
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send(std::string(256, 'x'));
    const std::string head = "Received packet from 127.0.0.2:40000\nData: ";
    EXPECT_TRUE(awaitPrinted(output_, "2" + head + std::string(255 - head.size(), 'x') + "\n"));
    EXPECT_EQ(kRecordSize, tool.receive().size());
}

TEST_F(SpyProvider, TakesDatagramsAboveItsBuffer) {
    DbgTraceLevel = 1;
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send(std::string(9000, 'y'));
    EXPECT_EQ(kRecordSize, tool.receive().size());
    EXPECT_EQ(1, output_.count("Received packet"));
}

TEST_F(SpyProvider, ReportsAShortDatagramWithoutTheTailOfALongerOne) {
    DbgTraceLevel = 1;
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("longer than the next");
    EXPECT_TRUE(awaitPrinted(output_, "Data: longer than the next\n"));
    tool.send("ab");
    EXPECT_TRUE(awaitPrinted(output_, "Data: ab\n"));
    tool.send(std::string("c\0d", 3));
    EXPECT_TRUE(awaitPrinted(output_, "Data: c\n"));
}

TEST_F(SpyProvider, RepliesToAnEmptyDatagramWithoutAReport) {
    DbgTraceLevel = 1;
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("");
    EXPECT_EQ(kRecordSize, tool.receive().size());
    EXPECT_EQ("", output_.text().substr(0, output_.text().find('[')));
    EXPECT_EQ(0, output_.count("Received packet"));
}

TEST_F(SpyProvider, ZeroesARecordInUse) {
    OSipc::instance("eth1")->linkDelay = 77;
    const SpyTool tool;
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    EXPECT_EQ(77, +OSipc::map.at("eth1")->linkDelay);
    tool.send("?");
    ASSERT_EQ(kRecordSize, tool.receive().size());
    EXPECT_EQ(0, +OSipc::map.at("eth1")->linkDelay);
}

TEST_F(SpyProvider, ReportsAPortInUseAndGoesOn) {
    DbgTraceLevel = 1;
    const SpyTool occupant(kSpyPort);
    const RunningProvider provider;
    EXPECT_TRUE(awaitPrinted(output_, "2bind is buggy \n"));
    const SpyTool tool;
    tool.send("for the occupant");
    EXPECT_EQ("for the occupant",
              [bytes = occupant.receive()] { return std::string(bytes.begin(), bytes.end()); }());
    EXPECT_TRUE(tool.receive(Milliseconds(0)).empty());
}

TEST_F(SpyProvider, WithoutASocketReportsEveryFailureOncePerPeriod) {
    DbgTraceLevel = 1;
    KernelSeam kernel;
    kernel.socket = [](int domain, int, int) -> std::optional<int> {
        return domain == AF_INET ? std::optional(KernelSeam::refuse(EMFILE)) : std::nullopt;
    };
    const Clock::time_point begin = Clock::now();
    const RunningProvider provider;
    EXPECT_TRUE(awaitPrinted(output_, "2sendto() is buggy \n", 3));
    EXPECT_GE(Clock::now() - begin, 3 * kPeriod);
    EXPECT_EQ(1, output_.count("2socket\n2bind is buggy \n"));
}

TEST_F(SpyProvider, ReportsAReplyThatCannotBeSentAndTriesAgain) {
    const SpyTool tool;
    DbgTraceLevel = 1;
    KernelSeam kernel;
    kernel.sendto = [](int, const void*, std::size_t size, int, const sockaddr*) {
        return size == kRecordSize ? std::optional<ssize_t>(KernelSeam::refuse(ENETUNREACH))
                                   : std::nullopt;
    };
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("?");
    EXPECT_TRUE(awaitPrinted(output_, "2sendto() is buggy \n", 2));
}

TEST_F(SpyProvider, WithoutARecordSendsNothing) {
    const SpyTool tool;
    shm_name = "/" + std::string(300, 'x');
    const StdoutCapture errors(2);
    const RunningProvider provider;
    ASSERT_TRUE(eventually(isPortTaken));
    tool.send("?");
    EXPECT_TRUE(errors.await("shm_open: "));
    EXPECT_TRUE(tool.receive(2 * kPeriod).empty());
}

/** Standard output where a death test looks for it. */
void printToStandardError() {
    dup2(2, 1);
}

TEST(SpyProviderAtTraceLevel3, EndsTheProcessWhenItStarts) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            printToStandardError();
            DbgTraceLevel = 3;
            RemotePTPSpyProvider(nullptr);
        },
        testing::KilledBySignal(SIGABRT), "RemotePTPSpyProvider  trace line 146\n");
}

TEST(SpyProviderAtTraceLevel3, EndsTheProcessAfterAReply) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            printToStandardError();
            const TimeSandbox sandbox;
            DbgTraceLevel = 2;
            shm_name = "/eth1";
            const RunningProvider provider;
            eventually(isPortTaken);
            const SpyTool tool;
            tool.send("?");
            tool.receive();
            DbgTraceLevel = 3;
            eventually([] { return false; });
        },
        testing::KilledBySignal(SIGABRT), "RemotePTPSpyProvider  trace line 183\n");
}

}  // namespace
