#include "tools/tsyn/run/RunOptions.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

namespace {

tsyn::RunOptions parsed(const std::string& words) {
    CLI::App app("test", "run");
    tsyn::RunOptions options;
    tsyn::addRunOptions(app, options);
    app.parse(words, false);
    return options;
}

TEST(RunOptions, DefaultsSuitABench) {
    const TSynInstanceConfig config = tsyn::makeConfig(parsed("eth1 --role slave"));
    EXPECT_EQ(config.recordSize, 356U);
    EXPECT_STREQ(config.interfaceName, "eth1");
    EXPECT_EQ(config.role, 0);
    EXPECT_EQ(config.VlanID, -1);
    EXPECT_EQ(config.PropagationDelay, 0);
    EXPECT_EQ(config.syncInterval, 125.0);
    EXPECT_EQ(config.TxMode, 1U);
    EXPECT_EQ(config.TxCrcMode, 1U);
    EXPECT_EQ(config.EnableAutosarExtensions, 0);
}

TEST(RunOptions, EveryProtocolOptionReachesItsField) {
    const TSynInstanceConfig config = tsyn::makeConfig(
        parsed("eth1 --role master --stack es0 --domain 15 --vlan-id 4096 --vlan-prio 7 "
               "--propagation-delay 1500 --sync-interval 250.5 --tx-mode 0"));
    EXPECT_EQ(config.role, 1);
    EXPECT_STREQ(config.ethStackIdent, "es0");
    EXPECT_EQ(config.Domain, 15);
    EXPECT_EQ(config.VlanID, 4096);
    EXPECT_EQ(config.VlanPrio, 7U);
    EXPECT_EQ(config.PropagationDelay, 1500);
    EXPECT_EQ(config.syncInterval, 250.5);
    EXPECT_EQ(config.TxMode, 0U);
}

TEST(RunOptions, EveryAutosarOptionReachesItsField) {
    const TSynInstanceConfig config = tsyn::makeConfig(
        parsed("eth1 --role master --autosar --data-id-list 000102030405060708090a0b0c0d0eFF "
               "--tx-crc-mode 0 --time-tlv secured --status-tlv not-secured "
               "--user-data-tlv secured --crc-time-flags 0x7F"));
    EXPECT_EQ(config.EnableAutosarExtensions, 1);
    EXPECT_EQ(config.DataIDList[1], 0x01);
    EXPECT_EQ(config.DataIDList[15], 0xFF);
    EXPECT_EQ(config.TxCrcMode, 0U);
    EXPECT_EQ(config.selector1, 1U);
    EXPECT_EQ(config.selector2, 2U);
    EXPECT_EQ(config.selector3, 1U);
    EXPECT_EQ(config.CrcTimeFlags, 127);
}

TEST(RunOptions, StatusAndUserDataOfAMaster) {
    const tsyn::RunOptions options =
        parsed("eth1 --role master --status global+gateway --user-data 1122");
    EXPECT_EQ(options.timeBaseStatus, 0x0CU);
    EXPECT_EQ(tsyn::makeUserData(options), (std::array<unsigned char, 4>{2, 0x11, 0x22, 0}));
    EXPECT_EQ(parsed("eth1 --role master").timeBaseStatus, 0x08U);
    EXPECT_EQ(tsyn::makeUserData(parsed("eth1 --role master"))[0], 0);
}

class RefusedOption : public testing::TestWithParam<const char*> {};

TEST_P(RefusedOption, IsAParseError) {
    EXPECT_THROW(parsed(std::string("eth1 --role slave ") + GetParam()), CLI::ParseError);
}

INSTANTIATE_TEST_SUITE_P(RunOptions, RefusedOption,
                         testing::Values("--domain 16", "--domain -1", "--vlan-id 4097",
                                         "--vlan-id -2", "--vlan-prio 8", "--sync-interval 124.9",
                                         "--sync-interval nan", "--propagation-delay -1",
                                         "--propagation-delay 2147483648", "--tx-mode 2",
                                         "--trace-level 3", "--duration 0", "--duration inf",
                                         "--data-id-list 00", "--truth tsm0", "--sample-rate 10",
                                         "--time-tlv not-secured", "--status-tlv on",
                                         "--crc-time-flags 256", "--user-data 11223344",
                                         "--user-data 1", "--status global", "--user-data 11"));

}  // namespace
