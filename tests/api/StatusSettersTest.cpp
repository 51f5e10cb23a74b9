#include <gtest/gtest.h>

#include "api/InterfaceDataManager.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

using Texts = std::vector<std::string>;

InstanceBlock& createdWith(unsigned char role) {
    DbgTraceLevel = 0;
    TSynInstanceConfig config = masterConfig();
    config.role = role;
    return InterfaceDataManager::getInstance(&config)->block;
}

int callStatusSetter(const std::string& name, unsigned char value) {
    return name == "SetStatus" ? ZebEthTSynInterface_SetStatus(0, value)
                               : ZebEthTSynInterface_SetTimeBaseStatus(0, value);
}

std::string hexOf(unsigned int value) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", value);
    return text;
}

TEST(StatusSetters, SetOrRefuseOnAMaster) {
    InstanceBlock& block = createdWith(1);
    for (const auto& vector : vectors("status")) {
        const StdoutCapture output;
        const auto value = vector["value"].get<unsigned char>();
        const bool refused = vector["byte"].is_null();
        block.timeBaseStatus = 0x55;
        EXPECT_EQ(refused ? -1 : 0, callStatusSetter(vector["call"].get<std::string>(), value));
        EXPECT_EQ(refused ? 0x55 : vector["byte"].get<int>(), block.timeBaseStatus);
        EXPECT_EQ(refused ? Texts{"Setting Invalid Status :0x" + hexOf(value) + " ... "} : Texts{},
                  output.texts());
    }
}

TEST(StatusSetters, AcceptBitsTwoAndThreeOnly) {
    createdWith(1);
    const StdoutCapture output;
    for (unsigned value = 0; value < 256; ++value) {
        EXPECT_EQ((value & 0xF3) == 0 ? 0 : -1,
                  ZebEthTSynInterface_SetTimeBaseStatus(0, static_cast<unsigned char>(value)));
    }
    EXPECT_EQ(252U, output.lines().size());
}

TEST(StatusSetters, ChangeNothingOnASlave) {
    InstanceBlock& block = createdWith(0);
    block.timeBaseStatus = 0x55;
    EXPECT_EQ(0, ZebEthTSynInterface_SetStatus(0, 1));
    EXPECT_EQ(0, ZebEthTSynInterface_SetTimeBaseStatus(0, 0x0C));
    EXPECT_EQ(0x55, block.timeBaseStatus);
}

TEST(StatusSetters, RefuseOnASlaveAsWell) {
    createdWith(0);
    const StdoutCapture output;
    EXPECT_EQ(-1, ZebEthTSynInterface_SetStatus(0, 2));
    EXPECT_EQ("ERROR", output.lines().at(0).level);
}

TEST(StatusSetters, AnyNonzeroRoleIsAMaster) {
    InstanceBlock& block = createdWith(2);
    EXPECT_EQ(0, ZebEthTSynInterface_SetStatus(0, 1));
    EXPECT_EQ(0x08, block.timeBaseStatus);
}

TEST(UserData, IsStoredWithZerosBeyondItsLength) {
    InstanceBlock& block = createdWith(1);
    for (const auto& vector : vectors("user_data")) {
        const StdoutCapture output;
        const Bytes data = fromHex(vector["data"].get<std::string>());
        const bool refused = vector["stored"].is_null();
        const std::string before = toHex(&block.userDataLength, 4);
        EXPECT_EQ(refused ? -1 : 0, ZebEthTSynInterface_SetUserData(0, data.data()));
        EXPECT_EQ(refused ? before : vector["stored"].get<std::string>(),
                  toHex(&block.userDataLength, 4));
        EXPECT_EQ(refused ? Texts{"Wrong user data length ..."} : Texts{}, output.texts());
    }
}

TEST(UserData, NoneChangesNothing) {
    InstanceBlock& block = createdWith(1);
    const unsigned char data[] = {2, 0x11, 0x22, 0x33};
    ZebEthTSynInterface_SetUserData(0, data);
    EXPECT_EQ(0, ZebEthTSynInterface_SetUserData(0, nullptr));
    EXPECT_EQ("02112200", toHex(&block.userDataLength, 4));
}

TEST(UserData, IsClearedInLengthOnlyByStop) {
    InstanceBlock& block = createdWith(1);
    const StdoutCapture output;
    const unsigned char data[] = {3, 0x11, 0x22, 0x33};
    ZebEthTSynInterface_SetUserData(0, data);
    EXPECT_EQ(0, ZebEthTSynInterface_Stop());
    EXPECT_EQ("00112233", toHex(&block.userDataLength, 4));
    EXPECT_EQ(Texts{"Stopping threads ..."}, output.texts());
    EXPECT_EQ("ALWAYS", output.lines()[0].level);
}

TEST(TransmitModes, AreStoredUncheckedOnAMaster) {
    const InstanceBlock& block = createdWith(1);
    EXPECT_EQ(0, ZebEthTSynInterface_SetTxMode(0, 7, 0xFFFFFFFF));
    EXPECT_EQ(7U, block.cfg.TxMode);
    EXPECT_EQ(0xFFFFFFFF, block.cfg.TxCrcMode);
}

TEST(TransmitModes, OnASlaveOnlyTheCrcModeIsStored) {
    const InstanceBlock& block = createdWith(0);
    EXPECT_EQ(0, ZebEthTSynInterface_SetTxMode(0, 7, 0));
    EXPECT_EQ(1U, block.cfg.TxMode);
    EXPECT_EQ(0U, block.cfg.TxCrcMode);
}

}  // namespace
