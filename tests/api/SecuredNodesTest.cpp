#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "include/gPtpTimeData.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "tests/support/StdoutCapture.h"
#include "timebase/osipc.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

constexpr char kMaster[] = "tsm0";
constexpr char kSlave[] = "tsm0peer";
constexpr unsigned int kFollowUpType = 8;
constexpr unsigned char kGlobalTimeBase = 0x08;

/** Time, status and user data secured, with every field of the header under the time CRCs. */
TSynInstanceConfig secured(TSynInstanceConfig config) {
    config.EnableAutosarExtensions = 1;
    config.timeSubTlv = 1;
    config.statusSubTlv = 1;
    config.userDataSubTlv = 1;
    config.CrcTimeFlags = 0x3F;
    for (unsigned int i = 0; i < sizeof config.DataIDList; ++i) {
        config.DataIDList[i] = static_cast<unsigned char>(0x30 + 5 * i);
    }
    return config;
}

[[noreturn]] void runMaster() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int silence = open("/dev/null", O_WRONLY);
    dup2(silence, 1);
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = secured(masterConfig(kMaster));
    const unsigned char userData[] = {3, 0xA1, 0xA2, 0xA3};
    ZebEthTSynInterface_Create(&config);
    ZebEthTSynInterface_SetTimeBaseStatus(0, kGlobalTimeBase | 0x04);
    ZebEthTSynInterface_SetUserData(0, userData);
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    for (;;) {
        pause();
    }
}

/** A master in a process of its own, killed at the end of the test. */
class MasterProcess {
public:
    MasterProcess() : process_(fork()) {
        if (process_ == 0) {
            runMaster();
        }
        if (process_ < 0) {
            throw std::runtime_error("cannot fork a master");
        }
    }
    ~MasterProcess() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    MasterProcess(const MasterProcess&) = delete;
    MasterProcess& operator=(const MasterProcess&) = delete;

private:
    pid_t process_;
};

/** A master and, in this process, a slave whose clock is fast and 1.5 s ahead. */
class SecuredNodes : public testing::Test {
protected:
    static TSynSubTlvReport report() {
        TSynSubTlvReport subTlvs{};
        ZebEthTSynInterface_GetCurrentTime(0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           &subTlvs, nullptr);
        return subTlvs;
    }

    /** The valid flags of the report, such as "4:1101". */
    static std::string flags() {
        const TSynSubTlvReport now = report();
        std::string text = std::to_string(now.count) + ":";
        for (const unsigned char flag : now.valid) {
            text += std::to_string(flag);
        }
        return text;
    }

    static bool awaitFlags(const std::string& wanted) {
        return eventually([&] { return flags() == wanted; });
    }

    static void corruptFollowUps(std::uint32_t byte) {
        virtual_i210::FaultOrder order;
        order.fault = virtual_i210::Fault::kFrameCorrupted;
        order.count = virtual_i210::kUntilCleared;
        order.messageType = kFollowUpType;
        order.byte = byte;
        virtual_i210::orderFault(kMaster, order);
    }

    /** The slave has taken another Sync and Follow_Up. */
    static bool takesAnotherSample() {
        const gPtpTimeDataStruct& record = *OSipc::instance(kSlave);
        const unsigned long long origin = record.originTime;
        return eventually([&] { return record.originTime != origin; });
    }

    CardSandbox sandbox_{kMaster, std::string("phc=0 cable_ns=500; ") + kSlave +
                                      " phc=1 rate_ppb=37000 offset_ns=1500000000 cable_ns=500"};
    StdoutCapture output_;
    MasterProcess master_;
    RunningDaemon slave_{secured(slaveConfig(kSlave)), RunningDaemon::kSlaveThreads};
};

TEST_F(SecuredNodes, SlaveReportsFourValidEntriesAndTheMastersData) {
    EXPECT_TRUE(awaitFlags("4:1111"));
    unsigned int status = 0;
    TSynUserData userData{};
    ZebEthTSynInterface_GetCurrentTime(0, nullptr, nullptr, nullptr, nullptr, nullptr, &status,
                                       nullptr, &userData);
    EXPECT_EQ(1U, status) << "secured, only the gateway bit travels";
    EXPECT_EQ(3, userData.length);
    EXPECT_EQ("a1a2a3", toHex(userData.bytes, 3));
    EXPECT_TRUE(takesAnotherSample());
}

TEST_F(SecuredNodes, CorruptCrcsShowInTheirFlagsAndTheSlaveGoesOn) {
    ASSERT_TRUE(awaitFlags("4:1111"));
    for (const auto& [byte, wanted] : {std::pair(89U, "4:0111"), std::pair(90U, "4:1011"),
                                       std::pair(94U, "4:1101"), std::pair(101U, "4:1110")}) {
        corruptFollowUps(byte);
        EXPECT_TRUE(awaitFlags(wanted)) << flags();
        EXPECT_TRUE(takesAnotherSample()) << byte;
    }
    virtual_i210::clearFaults(kMaster);
    EXPECT_TRUE(awaitFlags("4:1111")) << flags();
}

TEST_F(SecuredNodes, ACorruptSequenceIdMakesEveryFlagZero) {
    ASSERT_TRUE(awaitFlags("4:1111"));
    corruptFollowUps(31);
    EXPECT_TRUE(awaitFlags("4:0000")) << flags();
    EXPECT_EQ(RunningDaemon::kSlaveThreads, daemonThreads().size());
}

TEST_F(SecuredNodes, AtTraceLevel1ACorruptCrcStopsTheTimeUntilItIsGone) {
    ASSERT_TRUE(awaitFlags("4:1111"));
    ASSERT_TRUE(takesAnotherSample());
    DbgTraceLevel = 1;
    corruptFollowUps(90);
    ASSERT_TRUE(awaitPrinted(output_, "validation failed!\n", 2));
    const gPtpTimeDataStruct& record = *OSipc::instance(kSlave);
    const unsigned long long origin = record.originTime;
    const int dropped = output_.count("validation failed!\n");
    ASSERT_TRUE(awaitPrinted(output_, "validation failed!\n", dropped + 4));
    EXPECT_EQ(origin, valueOf(record.originTime));
    virtual_i210::clearFaults(kMaster);
    EXPECT_TRUE(takesAnotherSample());
    DbgTraceLevel = 0;
}

TEST_F(SecuredNodes, MeasuredDelayComesWithin10NsOfTheCable) {
    const gPtpTimeDataStruct& record = *OSipc::instance(kSlave);
    const auto isNear = [&record] { return record.linkDelay >= 490 && record.linkDelay <= 510; };
    EXPECT_TRUE(eventually(isNear, std::chrono::seconds(40))) << valueOf(record.linkDelay);
}

}  // namespace
