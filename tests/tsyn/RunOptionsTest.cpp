#include "tools/tsyn/run/RunOptions.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

#include "tools/tsyn/run/ProfileSwitches.h"

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
    EXPECT_EQ(356U, config.recordSize);
    EXPECT_STREQ("eth1", config.interfaceName);
    EXPECT_EQ(0, config.role);
    EXPECT_EQ(-1, config.VlanID);
    EXPECT_EQ(0, config.PropagationDelay);
    EXPECT_EQ(125.0, config.syncInterval);
    EXPECT_EQ(1U, config.TxMode);
    EXPECT_EQ(1U, config.TxCrcMode);
    EXPECT_EQ(0, config.EnableAutosarExtensions);
}

TEST(RunOptions, ProfileIsTheStandardOneUnlessTold) {
    EXPECT_EQ(1, tsyn::makeProfile(parsed("eth1 --role slave")).robustTime);
    EXPECT_EQ(0, tsyn::makeProfile(parsed("eth1 --role slave --profile deployed")).robustTime);
}

TEST(RunOptions, SwitchesGoOnTopOfTheProfile) {
    const TSynProfile profile =
        tsyn::makeProfile(parsed("eth1 --role slave --switch timescale=2 --switch robustDelay=0"));
    EXPECT_EQ(TSYN_TIMESCALE_TAI, profile.timescale);
    EXPECT_EQ(0, profile.robustDelay);
    EXPECT_EQ(1, profile.robustTime);
    EXPECT_THROW(parsed("eth1 --role slave --switch robustDelay=2"), CLI::ParseError);
    EXPECT_THROW(parsed("eth1 --role slave --switch robust=1"), CLI::ParseError);
}

TEST(RunOptions, TheMasterToBelieveIsASwitchToo) {
    for (const char* const text : {"00:11:22:ff:fe:33:44:55", "001122FFFE334455"}) {
        const TSynProfile profile = tsyn::makeProfile(
            parsed("eth1 --role slave --switch masterIdentity=" + std::string(text)));
        EXPECT_EQ(0x11, profile.masterIdentity[1]) << text;
        EXPECT_EQ(0x55, profile.masterIdentity[7]) << text;
    }
}

/** What tsyn says of a switch. */
std::string refusalOf(const std::string& text) {
    TSynProfile profile{};
    return tsyn::setSwitch(profile, text);
}

TEST(RunOptions, AWrongSwitchIsToldWithWhatThereIs) {
    const std::string unknown = refusalOf("eventPump=1");
    EXPECT_EQ(0U, unknown.find("no switch 'eventPump'; there are masterIdentity, anyMinorVersion"));
    EXPECT_NE(std::string::npos, unknown.find(", utcOffset"));
    EXPECT_EQ("timescale needs a number from 0 to 2, such as timescale=1",
              refusalOf("timescale=3"));
    for (const char* const wrong : {"timescale", "timescale=", "timescale=x", "timescale=1x",
                                    "timescale=-1", "timescale=99999999999"}) {
        EXPECT_EQ(0U, refusalOf(wrong).find("timescale needs")) << wrong;
    }
    EXPECT_EQ(
        "masterIdentity needs 16 hexadecimal digits, two a byte; 0x in front and colons between "
        "bytes may be",
        refusalOf("masterIdentity=1"));
    EXPECT_EQ("", refusalOf("timescale=2"));
}

TEST(RunOptions, EveryProtocolOptionReachesItsField) {
    const TSynInstanceConfig config = tsyn::makeConfig(
        parsed("eth1 --role master --stack es0 --domain 15 --vlan-id 4096 --vlan-prio 7 "
               "--propagation-delay 1500 --sync-interval 250.5 --tx-mode 0"));
    EXPECT_EQ(1, config.role);
    EXPECT_STREQ("es0", config.ethStackIdent);
    EXPECT_EQ(15, config.Domain);
    EXPECT_EQ(4096, config.VlanID);
    EXPECT_EQ(7U, config.VlanPrio);
    EXPECT_EQ(1500, config.PropagationDelay);
    EXPECT_EQ(250.5, config.syncInterval);
    EXPECT_EQ(0U, config.TxMode);
}

TEST(RunOptions, EveryAutosarOptionReachesItsField) {
    const TSynInstanceConfig config = tsyn::makeConfig(
        parsed("eth1 --role master --autosar --data-id-list 000102030405060708090a0b0c0d0eFF "
               "--tx-crc-mode 0 --time-tlv secured --status-tlv not-secured "
               "--user-data-tlv secured --crc-time-flags 0x7F"));
    EXPECT_EQ(1, config.EnableAutosarExtensions);
    EXPECT_EQ(0x01, config.DataIDList[1]);
    EXPECT_EQ(0xFF, config.DataIDList[15]);
    EXPECT_EQ(0U, config.TxCrcMode);
    EXPECT_EQ(1U, config.timeSubTlv);
    EXPECT_EQ(2U, config.statusSubTlv);
    EXPECT_EQ(1U, config.userDataSubTlv);
    EXPECT_EQ(127, config.CrcTimeFlags);
}

TEST(RunOptions, StatusAndUserDataOfAMaster) {
    const tsyn::RunOptions options =
        parsed("eth1 --role master --status global+gateway --user-data 1122");
    EXPECT_EQ(0x0CU, options.timeBaseStatus);
    EXPECT_EQ((std::array<unsigned char, 4>{2, 0x11, 0x22, 0}), tsyn::makeUserData(options));
    EXPECT_EQ(0x08U, parsed("eth1 --role master").timeBaseStatus);
    EXPECT_EQ(0, tsyn::makeUserData(parsed("eth1 --role master"))[0]);
}

TEST(RunOptions, HexadecimalTakesAPrefixAndColons) {
    const TSynInstanceConfig config = tsyn::makeConfig(parsed(
        "eth1 --role slave --data-id-list 0x00:01:02:03:04:05:06:07:08:09:0a:0b:0c:0d:0e:0F"));
    EXPECT_EQ(0x01, config.DataIDList[1]);
    EXPECT_EQ(0x0F, config.DataIDList[15]);
    EXPECT_EQ((std::array<unsigned char, 4>{2, 0x11, 0x22, 0}),
              tsyn::makeUserData(parsed("eth1 --role master --user-data 11:22")));
}

TEST(RunOptions, LogLevelIsASwitchOfEitherProfile) {
    EXPECT_EQ(8, tsyn::makeProfile(parsed("e --role slave --log-level error")).logThreshold);
    EXPECT_EQ(7, tsyn::makeProfile(parsed("e --role slave --profile deployed --log-level warning"))
                     .logThreshold);
}

class RefusedOption : public testing::TestWithParam<const char*> {};

TEST_P(RefusedOption, IsAParseError) {
    EXPECT_THROW(parsed(std::string("eth1 --role slave ") + GetParam()), CLI::ParseError);
}

INSTANTIATE_TEST_SUITE_P(
    RunOptions, RefusedOption,
    testing::Values("--domain 16", "--domain -1", "--vlan-id 4097", "--vlan-id -2", "--vlan-prio 8",
                    "--sync-interval 124.9", "--sync-interval nan", "--propagation-delay -1",
                    "--propagation-delay 2147483648", "--tx-mode 2", "--trace-level 3",
                    "--duration 0", "--duration inf", "--data-id-list 00", "--truth tsm0",
                    "--sample-rate 10", "--time-tlv not-secured", "--status-tlv on",
                    "--crc-time-flags 256", "--user-data 11223344", "--user-data 1",
                    "--user-data 11::22", "--user-data 1:122", "--user-data 11:", "--user-data 0x",
                    "--status global", "--user-data 11"));

}  // namespace
