#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "include/ZebEthTimeSynProfile.h"
#include "tests/support/Daemon.h"

/** The profile of deployed nodes with event loop and quick start; nothing else changes. */
inline TSynProfile eventProfile() {
    TSynProfile profile{};
    ZebEthTSynInterface_GetProfilePreset(TSYN_PRESET_DEPLOYED, &profile);
    profile.eventPumps = 1;
    profile.quickStart = 1;
    profile.startAfterDestroy = 1;
    profile.followLink = 1;
    return profile;
}

/** A card in real time, for tests of what the kernel and other processes do in their own time. */
class RealTimeSandbox {
public:
    RealTimeSandbox() {
        setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0 phc=0", 1);
        sandbox_.addVethPair("tsm0", "tsm0peer");
    }

private:
    Sandbox sandbox_;
};

/** A daemon with a profile, destroyed at the end of the test. */
class ProfiledDaemon {
public:
    ProfiledDaemon(const TSynInstanceConfig& config, const TSynProfile& profile) {
        DbgTraceLevel = 0;
        EXPECT_EQ(0, ZebEthTSynInterface_Create(&config));
        EXPECT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
        startResult = ZebEthTSynInterface_Start(0, nullptr, nullptr);
    }
    ~ProfiledDaemon() { ZebEthTSynInterface_Destroy(); }
    ProfiledDaemon(const ProfiledDaemon&) = delete;
    ProfiledDaemon& operator=(const ProfiledDaemon&) = delete;

    int startResult = -1;
};
