#include "api/InterfaceDataManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <new>

#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/MemorySeam.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

const unsigned char* bytesOf(const InstanceBlock& block) {
    return reinterpret_cast<const unsigned char*>(&block);
}

TEST(InstanceRegistry, HasNoInstanceBeforeTheFirstCall) {
    EXPECT_EQ(nullptr, InterfaceDataManager::m_pInstance);
}

TEST(InstanceRegistry, FirstCallMakesAZeroedBlockThatStays) {
    DbgTraceLevel = 2;
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance, InterfaceDataManager::m_pInstance);
    EXPECT_EQ(Bytes(416, 0), Bytes(bytesOf(instance->block), bytesOf(instance->block) + 416));
    EXPECT_EQ(instance, InterfaceDataManager::getInstance());
}

TEST(InstanceRegistryDeathTest, AboveLevelTwoTheFirstUseEndsTheProcess) {
    for (const int level : {3, 4, 255}) {
        DbgTraceLevel = level;
        EXPECT_EXIT(
            {
                dup2(2, 1);
                InterfaceDataManager::getInstance();
            },
            testing::KilledBySignal(SIGABRT), "^InterfaceDataManager  trace line 44\n$");
    }
}

TEST(InstanceRegistry, RaisingTheLevelAfterwardsDoesNoHarm) {
    DbgTraceLevel = 2;
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    DbgTraceLevel = 255;
    EXPECT_EQ(instance, InterfaceDataManager::getInstance());
}

TEST(InstanceRegistry, StoresTheRecordByteForByte) {
    DbgTraceLevel = 0;
    for (const auto& vector : vectors("config_record")) {
        const Bytes bytes = fromHex(vector["bytes"].get<std::string>());
        TSynInstanceConfig config{};
        ASSERT_EQ(sizeof config, bytes.size());
        std::memcpy(&config, bytes.data(), sizeof config);
        const InstanceBlock& block = InterfaceDataManager::getInstance(&config)->block;
        EXPECT_EQ(toHex(bytes), toHex(bytesOf(block), 356));
        EXPECT_STREQ("stack0", block.cfg.ethStackIdent);
        EXPECT_STREQ("eth1", block.cfg.interfaceName);
        EXPECT_EQ(5, block.cfg.VlanID);
        EXPECT_EQ(3U, block.cfg.VlanPrio);
        EXPECT_EQ(125.0, block.cfg.syncInterval);
        EXPECT_EQ(0x3F, block.cfg.CrcTimeFlags);
    }
}

TEST(InstanceRegistry, AHostsStructIsTheRecordByteForByte) {
    TSynInstanceConfig config = masterConfig("eth1");
    config.EnableAutosarExtensions = 1;
    config.VlanID = 5;
    config.VlanPrio = 3;
    for (unsigned char i = 0; i < 16; ++i) {
        config.DataIDList[i] = static_cast<unsigned char>(0x10 + i);
    }
    config.timeSubTlv = 1;
    config.statusSubTlv = 2;
    config.userDataSubTlv = 2;
    config.CrcTimeFlags = 0x3F;
    EXPECT_EQ(vectors("config_record")[0]["bytes"].get<std::string>(),
              toHex(reinterpret_cast<const unsigned char*>(&config), sizeof config));
}

/** A host's record of any size, every byte 0xAB behind the size field. */
struct OddRecord {
    explicit OddRecord(unsigned int size) : bytes(1000, 0xAB) {
        std::memcpy(bytes.data(), &size, sizeof size);
    }
    const TSynInstanceConfig* record() const {
        return reinterpret_cast<const TSynInstanceConfig*>(bytes.data());
    }
    Bytes bytes;
};

TEST(InstanceRegistry, CopiesAsManyBytesAsTheRecordSays) {
    DbgTraceLevel = 2;
    for (const unsigned size : {0U, 4U, 300U, 355U, 357U, 400U, 416U}) {
        InstanceBlock& block = InterfaceDataManager::getInstance()->block;
        std::memset(static_cast<void*>(&block), 0, sizeof block);
        const OddRecord odd(size);
        InterfaceDataManager::getInstance(odd.record());
        EXPECT_TRUE(std::equal(bytesOf(block), bytesOf(block) + size, odd.bytes.begin())) << size;
        EXPECT_TRUE(std::all_of(bytesOf(block) + size, bytesOf(block) + 416,
                                [](unsigned char byte) { return byte == 0; }))
            << size;
    }
}

TEST(InstanceRegistry, NeverCopiesBeyondTheBlock) {
    DbgTraceLevel = 2;
    for (const unsigned size : {417U, 1000U, 0xFFFFFFFFU}) {
        const OddRecord odd(size);
        const InstanceBlock& block = InterfaceDataManager::getInstance(odd.record())->block;
        EXPECT_TRUE(std::equal(bytesOf(block), bytesOf(block) + 416, odd.bytes.begin()));
    }
}

TEST(InstanceRegistryDeathTest, AnOddSizeAboveLevelTwoEndsTheProcess) {
    DbgTraceLevel = 2;
    InterfaceDataManager::getInstance();
    DbgTraceLevel = 3;
    const OddRecord odd(300);
    EXPECT_EXIT(
        {
            dup2(2, 1);
            InterfaceDataManager::getInstance(odd.record());
        },
        testing::KilledBySignal(SIGABRT), "^getInstance  trace line 95: value s is not supported");
}

TEST(InstanceRegistry, ExhaustedMemoryLeavesNoInstance) {
    memoryExhausted = true;
    DbgTraceLevel = 2;
    const TSynInstanceConfig config = masterConfig();
    EXPECT_EQ(nullptr, InterfaceDataManager::getInstance());
    EXPECT_EQ(nullptr, InterfaceDataManager::getInstance(&config));
    memoryExhausted = false;
    EXPECT_NE(nullptr, InterfaceDataManager::getInstance());
}

TEST(InstanceRegistry, ExhaustedMemoryIsReportedByTheStatusSetters) {
    memoryExhausted = true;
    DbgTraceLevel = 2;
    const StdoutCapture output;
    EXPECT_EQ(-1, ZebEthTSynInterface_SetStatus(0, 1));
    EXPECT_EQ(-1, ZebEthTSynInterface_SetTimeBaseStatus(0, 4));
    EXPECT_EQ((std::vector<std::string>{"Invalid InterfaceDataManager ... ",
                                        "Invalid InterfaceDataManager ... "}),
              output.texts());
    EXPECT_EQ("ERROR", output.lines()[0].level);
}

}  // namespace
