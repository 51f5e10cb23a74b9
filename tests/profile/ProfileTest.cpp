#include <gtest/gtest.h>

#include <cstring>

#include "include/ZebEthTimeSynProfile.h"
#include "include/ZebEthTimeSynSupportInterface.h"
#include "timebase/TimeChanges.h"
#include "timebase/TimeRecord.h"

namespace {

TSynProfile presetOf(unsigned int number) {
    TSynProfile profile;
    std::memset(&profile, 0xAA, sizeof profile);
    EXPECT_EQ(0, ZebEthTSynInterface_GetProfilePreset(number, &profile));
    return profile;
}

std::string refusalOf(const TSynProfile& profile) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, ZebEthTSynInterface_SetProfile(&profile));
    return testing::internal::GetCapturedStdout();
}

TEST(Preset, OfDeployedNodesHasEverySwitchOff) {
    const TSynProfile deployed = presetOf(TSYN_PRESET_DEPLOYED);
    EXPECT_EQ(sizeof(TSynProfile), deployed.recordSize);
    EXPECT_EQ(0, deployed.anyMinorVersion);
    EXPECT_EQ(TSYN_TIMESCALE_UNTOLD, deployed.timescale);
    EXPECT_EQ(0, deployed.robustTime);
    EXPECT_EQ(0, deployed.segmentMode);
    EXPECT_EQ(nullptr, deployed.logSink);
}

TEST(Preset, OfTheStandardLeavesTlvsAsTheyAre) {
    const TSynProfile standard = presetOf(TSYN_PRESET_STANDARD);
    EXPECT_EQ(1, standard.anyMinorVersion);
    EXPECT_EQ(1, standard.robustTime);
    EXPECT_EQ(0, standard.evenTlvs);
    EXPECT_EQ(0644, standard.segmentMode);
}

TEST(Preset, ThatDoesNotExistIsRefused) {
    TSynProfile profile{};
    EXPECT_EQ(-1, ZebEthTSynInterface_GetProfilePreset(2, &profile));
    EXPECT_EQ(0U, profile.recordSize);
    EXPECT_EQ(-1, ZebEthTSynInterface_GetProfilePreset(TSYN_PRESET_STANDARD, nullptr));
}

TEST(Switch, IsSetByItsName) {
    TSynProfile profile = presetOf(TSYN_PRESET_DEPLOYED);
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfileSwitch(&profile, "evenTlvs", 1));
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfileSwitch(&profile, "portTableLimit", 300));
    EXPECT_EQ(1, profile.evenTlvs);
    EXPECT_EQ(300, profile.portTableLimit);
    EXPECT_EQ(-1, ZebEthTSynInterface_SetProfileSwitch(&profile, "evenTlvs", 2));
    EXPECT_EQ(-1, ZebEthTSynInterface_SetProfileSwitch(&profile, "evenTlvs", -1));
    EXPECT_EQ(-1, ZebEthTSynInterface_SetProfileSwitch(&profile, "oddTlvs", 1));
    EXPECT_EQ(1, profile.evenTlvs);
}

TEST(Switch, IsListedWithItsHighestValueAndNoReservedMember) {
    const char* name = nullptr;
    int highest = 0;
    ASSERT_EQ(0, ZebEthTSynInterface_GetProfileSwitch(0, &name, &highest));
    EXPECT_STREQ("anyMinorVersion", name);
    EXPECT_EQ(1, highest);
    unsigned int number = 0;
    TSynProfile profile = presetOf(TSYN_PRESET_DEPLOYED);
    for (; ZebEthTSynInterface_GetProfileSwitch(number, &name, &highest) == 0; ++number) {
        EXPECT_EQ(0, ZebEthTSynInterface_SetProfileSwitch(&profile, name, highest)) << name;
        EXPECT_EQ(-1, ZebEthTSynInterface_SetProfileSwitch(&profile, name, highest + 1)) << name;
        EXPECT_EQ(std::string::npos, std::string(name).find("reserved"));
    }
    EXPECT_EQ(27U, number);
    EXPECT_EQ(-1, ZebEthTSynInterface_GetProfileSwitch(0, nullptr, &highest));
    EXPECT_EQ(-1, ZebEthTSynInterface_GetProfileSwitch(0, &name, nullptr));
}

TEST(SetProfile, RefusesASwitchThatNeedsAnotherAndNamesBoth) {
    TSynProfile profile = presetOf(TSYN_PRESET_STANDARD);
    profile.eventPumps = 0;
    EXPECT_NE(std::string::npos, refusalOf(profile).find("followLink does nothing without "
                                                         "eventPumps"));
    profile.followLink = 0;
    profile.oneMaster = 0;
    profile.masterIdentity[7] = 1;
    EXPECT_NE(std::string::npos, refusalOf(profile).find("masterIdentity does nothing without "
                                                         "oneMaster"));
    profile.oneMaster = 1;
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
}

TEST(SetProfile, RefusesAReservedMember) {
    TSynProfile profile = presetOf(TSYN_PRESET_STANDARD);
    profile.reserved2 = 1;
    EXPECT_NE(std::string::npos, refusalOf(profile).find("reserved2"));
}

TEST(SetProfile, RefusesAnotherSizeAndNamesIt) {
    TSynProfile profile = presetOf(TSYN_PRESET_STANDARD);
    profile.recordSize -= 4;
    EXPECT_NE(std::string::npos, refusalOf(profile).find("recordSize"));
}

TEST(SetProfile, RefusesAnUnknownValueAndNamesTheSwitch) {
    TSynProfile profile = presetOf(TSYN_PRESET_STANDARD);
    profile.timescale = 3;
    EXPECT_NE(std::string::npos, refusalOf(profile).find("timescale"));
    profile.timescale = TSYN_TIMESCALE_TAI;
    profile.segmentMode = 01000;
    EXPECT_NE(std::string::npos, refusalOf(profile).find("segmentMode"));
    profile.segmentMode = 0600;
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
}

/** At the anchor of a master's line. */
long long toldToTheHost(unsigned int preset, long long masterOffset, long long softOffset) {
    const TSynProfile profile = presetOf(preset);
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
    gPtpTimeDataStruct record{};
    storeLine(record, {1'000'000, masterOffset, 500, 1.0L, 1.0L});
    record.systemTime = 1'000'500;
    record.softOffset = softOffset;
    return timeChanges.hostTimeNs(record, 1'000'500);
}

TEST(HostTime, OfAMasterHasItsSoftOffsetOnceWhetherOrNotItsLineTellsItYet) {
    EXPECT_EQ(1'090'000, toldToTheHost(TSYN_PRESET_STANDARD, 0, 90'000));
    EXPECT_EQ(1'090'000, toldToTheHost(TSYN_PRESET_STANDARD, -90'000, 90'000));
    EXPECT_EQ(1'000'000, toldToTheHost(TSYN_PRESET_STANDARD, -90'000, 0));
    EXPECT_EQ(1'090'000, toldToTheHost(TSYN_PRESET_DEPLOYED, 0, 90'000));
}

}  // namespace
