#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/Daemon.h"
#include "tests/support/StdoutCapture.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

/** The daemon's role as a test parameter. */
class InRole : public testing::TestWithParam<bool> {
protected:
    TSynInstanceConfig config(const std::string& name) const {
        return GetParam() ? masterConfig(name) : slaveConfig(name);
    }
    std::size_t threads() const {
        return GetParam() ? RunningDaemon::kMasterThreads : RunningDaemon::kSlaveThreads;
    }
};

/** The library still answers its host. */
void expectHostAlive() {
    unsigned int first = 0, second = 0;
    ZebEthTSynInterface_getDaemonStatus(0, &first, nullptr, nullptr, nullptr);
    ZebEthTSynInterface_getDaemonStatus(0, &second, nullptr, nullptr, nullptr);
    EXPECT_EQ(first + 1, second);
}

TEST_P(InRole, AMissingInterfaceEndsTheRoleAndNotTheHost) {
    const TimeSandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    const TSynInstanceConfig missing = config("absent0");
    EXPECT_EQ(0, ZebEthTSynInterface_Create(&missing));
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    ASSERT_TRUE(output.await(">*** Leaving MainEntryPointSharedLibrary('*stack0' 'absent0') ***"));
    EXPECT_EQ(1, output.count(">Error occured due to No such device\n"));
    EXPECT_EQ(1, output.count(">ioctl() failed! Reason is: No such device\n"));
    EXPECT_EQ(0, output.count("Port index"));
    expectHostAlive();
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ("Threads are still running...", output.texts().back());
}

TEST_P(InRole, DestroyAfterAFailedStartDoesNoHarm) {
    const TimeSandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    const TSynInstanceConfig missing = config("absent0");
    ZebEthTSynInterface_Create(&missing);
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    ASSERT_TRUE(output.await(">*** Leaving MainEntryPointSharedLibrary("));
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_EQ(0, ZebEthTSynInterface_Destroy());
    EXPECT_TRUE(eventually([] { return daemonThreads().empty(); }));
    expectHostAlive();
}

TEST_P(InRole, AMissingPhcIsReportedAndTheRoleGoesOn) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    virtual_i210::hidePhc("tsm0", true);
    const RunningDaemon daemon(config("tsm0"), threads());
    EXPECT_TRUE(output.await(">Failed to find PTP device index\n"));
    EXPECT_EQ(GetParam() ? 1 : 0, output.count(">system time is: "));
    EXPECT_EQ(0, output.count(">time is set to: "));
    EXPECT_TRUE(PeerSocket("tsm0peer").awaitType(GetParam() ? 0 : 2));
    expectHostAlive();
}

TEST_P(InRole, ARefusedTimestampRequestIsReportedAndTheHostLives) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    virtual_i210::refuseHwtstamp("tsm0", EOPNOTSUPP);
    const RunningDaemon daemon(config("tsm0"), threads());
    EXPECT_EQ(1, output.count(">errno: Operation not supported\n"));
    EXPECT_EQ(1, output.count(">Socket fd uif.s: -1 ...\n"));
    EXPECT_EQ(1, output.count(">setsockopt() failed ... Reason is:Bad file descriptor\n"));
    EXPECT_TRUE(output.await(">Timestamp still missing!\n"));
    expectHostAlive();
}

TEST_P(InRole, ARefusedPhcQueryIsReportedAndTheHostLives) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    virtual_i210::refuseEthtool("tsm0", EPERM);
    const RunningDaemon daemon(config("tsm0"), threads());
    EXPECT_TRUE(
        output.await(">findPTPIndex: ioctl(SIOETHTOOL) failed! ifr.ifr_name:tsm0 "
                     "Reason:Operation not permitted\n"));
    EXPECT_TRUE(output.await(">Failed to find PTP device index\n"));
    expectHostAlive();
}

INSTANTIATE_TEST_SUITE_P(FailedStart, InRole, testing::Bool(), [](const auto& info) {
    return std::string(info.param ? "Master" : "Slave");
});

}  // namespace
