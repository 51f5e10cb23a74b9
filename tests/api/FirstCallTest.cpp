#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "api/InterfaceDataManager.h"
#include "include/ZebEthTimeSynSupportInterface.h"

namespace {

const unsigned char kTooLong[] = {9, 0, 0, 0};

struct Call {
    const char* name;
    void (*make)();
};

void PrintTo(const Call& call, std::ostream* stream) {
    *stream << call.name;
}

/** The first call of a process at the initial trace level, which allows no instance. */
class FirstCallDeathTest : public testing::TestWithParam<Call> {};

TEST_P(FirstCallDeathTest, AsksForTheInstanceBeforeItJudgesItsValues) {
    EXPECT_EXIT(
        {
            dup2(2, 1);
            GetParam().make();
            _exit(0);
        },
        testing::KilledBySignal(SIGABRT), "^InterfaceDataManager  trace line 44\n$");
}

const Call kCalls[] = {
    {"Destroy", [] { ZebEthTSynInterface_Destroy(); }},
    {"Start", [] { ZebEthTSynInterface_Start(0, nullptr, nullptr); }},
    {"Stop", [] { ZebEthTSynInterface_Stop(); }},
    {"DaemonStatus",
     [] { ZebEthTSynInterface_getDaemonStatus(0, nullptr, nullptr, nullptr, nullptr); }},
    {"MasterTime", [] { ZebEthTSynInterface_GetMasterTime(0, nullptr, nullptr); }},
    {"SetHardTime", [] { ZebEthTSynInterface_SetHardTime(0, 0, 0, 0); }},
    {"SetTime", [] { ZebEthTSynInterface_SetTime(0, 0, 0, 0, nullptr); }},
    {"SetTimeTooLong", [] { ZebEthTSynInterface_SetTime(0, 0, 0, 0, kTooLong); }},
    {"SetTimeTooBig", [] { ZebEthTSynInterface_SetTime(0, ~0ULL, 0, 0, nullptr); }},
    {"SetStatus", [] { ZebEthTSynInterface_SetStatus(0, 2); }},
    {"SetTimeBaseStatus", [] { ZebEthTSynInterface_SetTimeBaseStatus(0, 1); }},
    {"SetUserDataNone", [] { ZebEthTSynInterface_SetUserData(0, nullptr); }},
    {"SetUserDataTooLong", [] { ZebEthTSynInterface_SetUserData(0, kTooLong); }},
    {"SetTxMode", [] { ZebEthTSynInterface_SetTxMode(0, 0, 0); }},
};

INSTANTIATE_TEST_SUITE_P(FirstCall, FirstCallDeathTest, testing::ValuesIn(kCalls),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FirstCall, OfATimeThatIsTooBigNeedsNoInstance) {
    EXPECT_EQ(-1, ZebEthTSynInterface_SetSoftTime(0, ~0ULL, 0, 0));
    EXPECT_EQ(nullptr, InterfaceDataManager::m_pInstance);
}

TEST(FirstCall, OfTheTimeOfADaemonThatDoesNotRunNeedsNoInstance) {
    EXPECT_EQ(0, ZebEthTSynInterface_GetCurrentTime(0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                    nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, InterfaceDataManager::m_pInstance);
}

}  // namespace
