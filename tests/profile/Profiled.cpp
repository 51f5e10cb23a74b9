#include "tests/profile/Profiled.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "api/InterfaceDataManager.h"
#include "base/DbgLog.h"
#include "profile/Quality.h"
#include "ptp/ProtocolSteps.h"

TSynProfile deployedWith(Switches switches) {
    TSynProfile profile;
    ZebEthTSynInterface_GetProfilePreset(TSYN_PRESET_DEPLOYED, &profile);
    for (const auto& [name, value] : switches) {
        EXPECT_EQ(0, ZebEthTSynInterface_SetProfileSwitch(&profile, name, value)) << name;
    }
    return profile;
}

void configure(const TSynInstanceConfig& config) {
    DbgTraceLevel = 0;
    InterfaceDataManager::getInstance(&config);
}

void setProfile(const TSynProfile& profile) {
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
}

gPtpTimeQuality qualityNow() {
    gPtpTimeQuality filled{};
    quality::fill(filled);
    return filled;
}

Bytes messageOf(unsigned char type, std::size_t length, unsigned char clock,
                unsigned int sequenceId) {
    Bytes message(length);
    message[0] = static_cast<unsigned char>(0x10 | type);
    message[1] = 2;
    message[3] = static_cast<unsigned char>(length);
    std::fill_n(message.begin() + 20, 8, clock);
    message[29] = 1;
    message[30] = static_cast<unsigned char>(sequenceId >> 8);
    message[31] = static_cast<unsigned char>(sequenceId);
    message[33] = type == 0 ? 0xFD : 0;
    return message;
}

Bytes answerTo(unsigned char requester, unsigned char type, unsigned char responder,
               unsigned int sequenceId) {
    Bytes message = messageOf(type, 54, responder, sequenceId);
    std::fill_n(message.begin() + 44, 8, requester);
    message[53] = 1;
    return message;
}

bool isAdmitted(Bytes message) {
    return protocolSteps.admits(message.data(), static_cast<unsigned int>(message.size()), 1);
}

void pass(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}
