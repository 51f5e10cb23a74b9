#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <limits>

#include "api/InterfaceDataManager.h"
#include "tests/support/Daemon.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

using Texts = std::vector<std::string>;

const std::string kCreatingInstance = "Creating instance for interface: eth1 ...";

/** What Create makes of a valid configuration after a change. */
struct Created {
    explicit Created(const std::function<void(TSynInstanceConfig&)>& change) {
        DbgTraceLevel = 0;
        TSynInstanceConfig config = masterConfig("eth1");
        change(config);
        const StdoutCapture output;
        result = ZebEthTSynInterface_Create(&config);
        lines = output.lines();
        texts = output.texts();
        const auto* const given = reinterpret_cast<const unsigned char*>(&config);
        const auto* const stored =
            reinterpret_cast<const unsigned char*>(InterfaceDataManager::m_pInstance);
        wasStored = std::equal(given, given + sizeof config, stored);
    }

    void expectAccepted() const {
        EXPECT_EQ(0, result);
        EXPECT_EQ(Texts{kCreatingInstance}, texts);
        EXPECT_TRUE(wasStored);
    }

    void expectRefused(const Texts& errors) const {
        EXPECT_EQ(-1, result);
        EXPECT_TRUE(wasStored);
        ASSERT_EQ(errors.size() + 1, texts.size());
        EXPECT_EQ(kCreatingInstance, texts[0]);
        for (std::size_t i = 0; i < errors.size(); ++i) {
            EXPECT_EQ(errors[i], texts[i + 1]);
            EXPECT_EQ("ERROR", lines[i + 1].level);
        }
    }

    int result;
    bool wasStored;
    std::vector<LogLine> lines;
    Texts texts;
};

Created withInterval(double milliseconds) {
    return Created([=](TSynInstanceConfig& config) { config.syncInterval = milliseconds; });
}
Created withVlanId(int id) {
    return Created([=](TSynInstanceConfig& config) { config.VlanID = id; });
}
Created withVlanPriority(unsigned int priority) {
    return Created([=](TSynInstanceConfig& config) { config.VlanPrio = priority; });
}
Created withDomain(unsigned char domain) {
    return Created([=](TSynInstanceConfig& config) { config.Domain = domain; });
}

std::string intervalLine(int printed) {
    return "Invalid Sync interval: " + std::to_string(printed) +
           ". Sync intarval should be >= 125 ms ...";
}

TEST(Create, LogsWhereLogReadersLook) {
    const Created created = withInterval(125.0);
    created.expectAccepted();
    EXPECT_EQ("ALWAYS", created.lines[0].level);
    EXPECT_EQ("api/ZebEthTimeSynSupportInterface.cpp", created.lines[0].file);
    EXPECT_EQ(1297, created.lines[0].line);
    EXPECT_EQ("ZebEthTSynInterface_Create", created.lines[0].function);
}

TEST(Create, AcceptsTheShortestInterval) {
    withInterval(125.0).expectAccepted();
}

TEST(Create, RefusesAShorterIntervalButStoresIt) {
    withInterval(124.9).expectRefused({intervalLine(-1717986918)});
}

TEST(Create, PrintsTheLowWordOfARefusedInterval) {
    for (const auto& vector : vectors("sync_interval_line")) {
        withInterval(vector["interval"].get<double>())
            .expectRefused({intervalLine(vector["printed"].get<int>())});
    }
}

TEST(Create, AcceptsAnIntervalThatIsNoNumber) {
    withInterval(std::numeric_limits<double>::quiet_NaN()).expectAccepted();
}

TEST(Create, RefusesAnIntervalOfMinusInfinityAndAcceptsPlusInfinity) {
    withInterval(-std::numeric_limits<double>::infinity()).expectRefused({intervalLine(0)});
    withInterval(std::numeric_limits<double>::infinity()).expectAccepted();
}

TEST(Create, AcceptsVlanIdsUpTo4096) {
    withVlanId(0).expectAccepted();
    withVlanId(4096).expectAccepted();
    withVlanId(4097).expectRefused({"Invalid parameter VlanID: 4097"});
}

TEST(Create, AcceptsNegativeVlanIds) {
    withVlanId(-1).expectAccepted();
    withVlanId(INT_MIN).expectAccepted();
}

TEST(Create, RefusesVlanPrioritiesAboveSevenUnsigned) {
    withVlanPriority(7).expectAccepted();
    withVlanPriority(8).expectRefused({"Invalid parameter VlanPrio: 8"});
    withVlanPriority(0xFFFFFFFF).expectRefused({"Invalid parameter VlanPrio: -1"});
}

TEST(Create, AcceptsDomainsUpTo15) {
    withDomain(15).expectAccepted();
    withDomain(16).expectRefused({"Invalid parameter Domain: 16"});
    withDomain(255).expectRefused({"Invalid parameter Domain: 255"});
}

TEST(Create, ReportsOnlyTheFirstOfVlanPriorityAndDomain) {
    Created([](TSynInstanceConfig& config) {
        config.VlanID = 5000;
        config.Domain = 20;
    }).expectRefused({"Invalid parameter VlanID: 5000"});
    Created([](TSynInstanceConfig& config) {
        config.VlanPrio = 9;
        config.Domain = 20;
    }).expectRefused({"Invalid parameter VlanPrio: 9"});
}

TEST(Create, ReportsTheIntervalBesideOneOfTheOthers) {
    Created([](TSynInstanceConfig& config) {
        config.syncInterval = 100.0;
        config.Domain = 20;
    }).expectRefused({intervalLine(0), "Invalid parameter Domain: 20"});
}

TEST(Create, PrintsErrorsAtTraceLevelZero) {
    const auto refused = withDomain(16);
    EXPECT_EQ(0, DbgTraceLevel);
    EXPECT_EQ("ERROR", refused.lines.at(1).level);
}

TEST(Create, ReadsANameWithoutTerminatorNoFurtherThanItsField) {
    const Created created([](TSynInstanceConfig& config) {
        std::memset(config.interfaceName, 'n', sizeof config.interfaceName);
        config.Domain = 'D';
    });
    EXPECT_EQ("Creating instance for interface: " + std::string(64, 'n') + " ...",
              created.texts.at(0));
}

TEST(Create, RefusesNoConfigurationWithoutALine) {
    const StdoutCapture output;
    EXPECT_EQ(-1, ZebEthTSynInterface_Create(nullptr));
    EXPECT_EQ("", output.text());
    EXPECT_EQ(nullptr, InterfaceDataManager::m_pInstance);
}

TEST(Create, AgainReusesTheBlockAndClearsTheTimeBaseStatusAlone) {
    withInterval(125.0);
    InterfaceDataManager* const instance = InterfaceDataManager::m_pInstance;
    ZebEthTSynInterface_SetTimeBaseStatus(0, 0x0C);
    const unsigned char data[] = {2, 0x11, 0x22, 0x33};
    ZebEthTSynInterface_SetUserData(0, data);
    ASSERT_EQ(0x0C, instance->block.timeBaseStatus);
    withInterval(250.0).expectAccepted();
    EXPECT_EQ(instance, InterfaceDataManager::m_pInstance);
    EXPECT_EQ(0, instance->block.timeBaseStatus);
    EXPECT_EQ(2, instance->block.userDataLength);
    EXPECT_EQ(250.0, instance->block.cfg.syncInterval);
}

TEST(Create, ARefusedConfigurationClearsTheTimeBaseStatusToo) {
    withInterval(125.0);
    ZebEthTSynInterface_SetTimeBaseStatus(0, 0x0C);
    withDomain(16);
    EXPECT_EQ(0, InterfaceDataManager::m_pInstance->block.timeBaseStatus);
}

TEST(CreateDeathTest, AtTheInitialTraceLevelLogsItsLineAndEndsTheProcess) {
    const TSynInstanceConfig config = masterConfig("eth1");
    EXPECT_EXIT(
        {
            dup2(2, 1);
            ZebEthTSynInterface_Create(&config);
        },
        testing::KilledBySignal(SIGABRT),
        "Creating instance for interface: eth1 ...\nInterfaceDataManager  trace line 44\n");
}

TEST(DaemonStatus, CountsCallsModulo256) {
    DbgTraceLevel = 0;
    unsigned int first = 9, second = 9, third = 9;
    unsigned char fourth = 9;
    for (unsigned int call = 0; call < 258; ++call) {
        EXPECT_EQ(0, ZebEthTSynInterface_getDaemonStatus(7, &first, &second, &third, &fourth));
        ASSERT_EQ(call % 256, first);
        ASSERT_EQ(call % 256, second);
        ASSERT_EQ(call % 256, third);
        ASSERT_EQ(call % 256, fourth);
    }
}

TEST(DaemonStatus, SkipsOutputsThatAreNotWanted) {
    DbgTraceLevel = 0;
    EXPECT_EQ(0, ZebEthTSynInterface_getDaemonStatus(0, nullptr, nullptr, nullptr, nullptr));
    unsigned char count = 9;
    ZebEthTSynInterface_getDaemonStatus(0, nullptr, nullptr, nullptr, &count);
    EXPECT_EQ(1, count);
}

}  // namespace
