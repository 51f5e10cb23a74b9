#include <gtest/gtest.h>

#include <cstdlib>

#include "api/InterfaceDataManager.h"
#include "platform/i210helper.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"
#include "timebase/osipc.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using Texts = std::vector<std::string>;

constexpr long long kSecond = 1000000000;

/** An instance on a card whose socket is open; no thread runs. */
struct HostOnCard {
    explicit HostOnCard(unsigned char role = 1) {
        DbgTraceLevel = 0;
        TSynInstanceConfig config = masterConfig();
        config.role = role;
        block = &InterfaceDataManager::getInstance(&config)->block;
        EXPECT_GT(EnableI210Timestamping("tsm0"), 0);
        OSipc::map["tsm0"] = &record;
    }
    ~HostOnCard() { OSipc::map.clear(); }

    StdoutCapture output;
    CardSandbox sandbox;
    gPtpTimeDataStruct record{};
    InstanceBlock* block;
    KernelSeam kernel;
};

TEST(SetSoftTime, StoresTheDifferenceToTheHardwareClock) {
    HostOnCard host;
    for (const auto& vector : vectors("set_soft_time")) {
        SCOPED_TRACE(vector.dump());
        host.kernel.clockGettime = nullptr;
        host.kernel.fixPhc(toS64(vector["hardware"]));
        host.record.softOffset = 4711;
        EXPECT_EQ(vector["result"].get<int>(),
                  ZebEthTSynInterface_SetSoftTime(0, toU64(vector["seconds"]),
                                                  vector["nanoseconds"].get<unsigned>(), 0));
        const bool kept = vector["offset8"].is_null();
        EXPECT_EQ(kept ? 4711 : toS64(vector["offset8"]), host.record.softOffset);
    }
}

TEST(SetSoftTime, ReportsATimeThatIsTooBig) {
    DbgTraceLevel = 0;
    const StdoutCapture output;
    EXPECT_EQ(-1, ZebEthTSynInterface_SetSoftTime(0, 4611686019ULL, 0, 0));
    EXPECT_EQ(-1, ZebEthTSynInterface_SetSoftTime(0, ~0ULL, 0, 0));
    EXPECT_EQ((Texts{"Too big time as secons to set 4611686019 ...",
                     "Too big time as secons to set 18446744073709551615 ..."}),
              output.texts());
    EXPECT_EQ("ERROR", output.lines()[0].level);
}

TEST(SetSoftTime, ReportsAClockThatReadsZero) {
    HostOnCard host;
    host.kernel.fixPhc(0);
    EXPECT_EQ(-1, ZebEthTSynInterface_SetSoftTime(0, 100, 0, 0));
    EXPECT_EQ("... i210helper::e1000_ptp_get_time() failed! ", host.output.texts().back());
    EXPECT_EQ("ERROR", host.output.lines().back().level);
}

TEST(SetSoftTime, DoesNotStepTheHardwareClock) {
    HostOnCard host;
    int settings = 0;
    host.kernel.clockSettime = [&](clockid_t, const timespec*) {
        ++settings;
        return 0;
    };
    EXPECT_EQ(0, ZebEthTSynInterface_SetSoftTime(0, 100, 5, 0));
    EXPECT_EQ(0, settings);
    EXPECT_LT(host.record.softOffset, 0);
}

TEST(SetSoftTime, FailsWithoutASharedRecord) {
    HostOnCard host;
    OSipc::map.clear();
    const StdoutCapture errors(2);
    EXPECT_EQ(-1, ZebEthTSynInterface_SetSoftTime(0, 100, 5, 0));
    EXPECT_EQ(0U, errors.text().find("shm_open: "));
}

TEST(SetTime, StoresUserDataAndTheOffset) {
    HostOnCard host;
    host.kernel.fixPhc(40 * kSecond);
    const unsigned char data[] = {2, 0x11, 0x22, 0x33};
    EXPECT_EQ(0, ZebEthTSynInterface_SetTime(0, 100, 5, 0, data));
    EXPECT_EQ("02112200", toHex(&host.block->userDataLength, 4));
    EXPECT_EQ(60 * kSecond + 5, host.record.softOffset);
}

TEST(SetTime, WithoutUserDataSetsTheOffsetAlone) {
    HostOnCard host;
    host.kernel.fixPhc(40 * kSecond);
    EXPECT_EQ(0, ZebEthTSynInterface_SetTime(0, 100, 5, 0, nullptr));
    EXPECT_EQ(0, host.block->userDataLength);
    EXPECT_EQ(60 * kSecond + 5, host.record.softOffset);
}

TEST(SetTime, AWrongUserDataLengthLeavesTheTimeAlone) {
    HostOnCard host;
    host.record.softOffset = 4711;
    const unsigned char data[] = {4, 0x11, 0x22, 0x33};
    EXPECT_EQ(-1, ZebEthTSynInterface_SetTime(0, 100, 5, 0, data));
    EXPECT_EQ("Wrong user data length ...", host.output.texts().back());
    EXPECT_EQ(4711, host.record.softOffset);
    EXPECT_EQ(0, host.block->userDataLength);
}

TEST(SetTime, PassesTheResultOfTheTimeOn) {
    HostOnCard host;
    const unsigned char data[] = {1, 0x11, 0x22, 0x33};
    EXPECT_EQ(-1, ZebEthTSynInterface_SetTime(0, 4611686019ULL, 0, 0, data));
    EXPECT_EQ(1, host.block->userDataLength);
}

TEST(SetHardTime, SetsTheCardToTheLow32BitsOfTheSeconds) {
    HostOnCard host;
    timespec set{};
    host.kernel.clockSettime = [&](clockid_t, const timespec* time) {
        set = *time;
        return 0;
    };
    EXPECT_EQ(0, ZebEthTSynInterface_SetHardTime(0, 0x500000000ULL + 1000000, 500, 0));
    EXPECT_EQ(1000000, set.tv_sec);
    EXPECT_EQ(500, set.tv_nsec);
}

TEST(SetHardTime, ReturnsZeroWhateverTheClockSays) {
    HostOnCard host;
    host.kernel.clockSettime = [](clockid_t, const timespec*) { return KernelSeam::refuse(EPERM); };
    EXPECT_EQ(0, ZebEthTSynInterface_SetHardTime(0, 1000000, 0, 0));
    EXPECT_EQ("clock_settime() failed!", host.output.texts().back());
}

TEST(SetHardTime, PointsSockAtTheStackMeanwhileAndRestoresIt) {
    HostOnCard host;
    setenv("SOCK", "before", 1);
    std::string meanwhile;
    host.kernel.clockSettime = [&](clockid_t, const timespec*) {
        meanwhile = getenv("SOCK");
        return 0;
    };
    ZebEthTSynInterface_SetHardTime(0, 1000000, 0, 0);
    EXPECT_EQ("stack0", meanwhile);
    EXPECT_STREQ("before", getenv("SOCK"));
}

TEST(SetHardTime, LeavesSockAtTheStackWhenThereWasNone) {
    HostOnCard host;
    unsetenv("SOCK");
    ZebEthTSynInterface_SetHardTime(0, 1000000, 0, 0);
    EXPECT_STREQ("stack0", getenv("SOCK"));
}

TEST(MasterTime, IsTheHardwareClockOfAMaster) {
    HostOnCard host;
    host.kernel.fixPhc(1700000000 * kSecond + 987654321);
    unsigned long long seconds = 0;
    unsigned int nanoseconds = 0;
    EXPECT_EQ(0, ZebEthTSynInterface_GetMasterTime(0, &seconds, &nanoseconds));
    EXPECT_EQ(1700000000ULL, seconds);
    EXPECT_EQ(987654321U, nanoseconds);
    EXPECT_EQ(0, ZebEthTSynInterface_GetMasterTime(0, nullptr, nullptr));
}

TEST(MasterTime, IsRefusedUnlessTheRoleIsExactlyOne) {
    for (const unsigned char role : {0, 2, 255}) {
        DbgTraceLevel = 0;
        TSynInstanceConfig config = masterConfig();
        config.role = role;
        InterfaceDataManager::getInstance(&config);
        unsigned long long seconds = 9;
        unsigned int nanoseconds = 9;
        EXPECT_EQ(-1, ZebEthTSynInterface_GetMasterTime(0, &seconds, &nanoseconds));
        EXPECT_EQ(0ULL, seconds);
        EXPECT_EQ(0U, nanoseconds);
    }
}

}  // namespace
