#include "profile/Profile.h"

#include <cstddef>
#include <cstring>

#include "platform/CardSteps.h"
#include "profile/LogSwitches.h"
#include "profile/LoopSteps.h"
#include "profile/TimeSteps.h"
#include "profile/WireSteps.h"
#include "timebase/osipc.h"

namespace {

/** A switch: what it may be and what the standard preset makes of it. */
struct Switch {
    const char* name;
    std::size_t offset;
    std::size_t size;
    int highest;
    int standard;
};

#define ZEB_SWITCH(name, highest, standard) \
    { #name, offsetof(TSynProfile, name), sizeof(TSynProfile::name), highest, standard }

constexpr int kAnyByte = 0xFF;
constexpr int kAnyHalf = 0xFFFF;
constexpr int kHighestMode = 0777;
constexpr int kHighestLevel = 8;
constexpr int kUtcOffsetSince2017 = 37;

// Whom or what each is for stands at its member in include/ZebEthTimeSynProfile.h.
constexpr Switch kSwitches[] = {
    ZEB_SWITCH(anyMinorVersion, 1, 1),
    ZEB_SWITCH(onePortNumber, 1, 1),
    ZEB_SWITCH(standardResponses, 1, 1),
    ZEB_SWITCH(configuredLogInterval, 1, 1),
    ZEB_SWITCH(timescale, TSYN_TIMESCALE_TAI, TSYN_TIMESCALE_ARBITRARY),
    ZEB_SWITCH(timeChangeMarks, 1, 1),
    ZEB_SWITCH(signedRateOffset, 1, 1),
    ZEB_SWITCH(evenTlvs, 1, 0),
    ZEB_SWITCH(oneMaster, 1, 1),
    ZEB_SWITCH(soleAnswer, 1, 1),
    ZEB_SWITCH(receiveStampRequired, 1, 1),
    ZEB_SWITCH(answersPerSecond, kAnyByte, 16),
    ZEB_SWITCH(portTableLimit, kAnyHalf, 64),
    ZEB_SWITCH(matchedStamps, 1, 1),
    ZEB_SWITCH(preciseCrossTimestamps, 1, 1),
    ZEB_SWITCH(robustTime, 1, 1),
    ZEB_SWITCH(robustDelay, 1, 1),
    ZEB_SWITCH(eventPumps, 1, 1),
    ZEB_SWITCH(quickStart, 1, 1),
    ZEB_SWITCH(followLink, 1, 1),
    ZEB_SWITCH(startAfterDestroy, 1, 1),
    ZEB_SWITCH(oneDaemon, 1, 1),
    ZEB_SWITCH(reserved0, 0, 0),
    ZEB_SWITCH(segmentMode, kHighestMode, 0644),
    ZEB_SWITCH(logThreshold, kHighestLevel, 0),
    ZEB_SWITCH(reserved1, 0, 0),
    ZEB_SWITCH(logLinesPerSecond, kAnyHalf, 5),
    ZEB_SWITCH(utcOffset, kAnyHalf / 2, kUtcOffsetSince2017),
    ZEB_SWITCH(reserved2, 0, 0),
};
#undef ZEB_SWITCH

int valueOf(const TSynProfile& profile, const Switch& each) {
    const auto* const at = reinterpret_cast<const unsigned char*>(&profile) + each.offset;
    if (each.size == 1) {
        return *at;
    }
    unsigned short value = 0;
    std::memcpy(&value, at, sizeof value);
    return value;
}

void setValue(TSynProfile& profile, const Switch& each, int value) {
    auto* const at = reinterpret_cast<unsigned char*>(&profile) + each.offset;
    const auto half = static_cast<unsigned short>(value);
    if (each.size == 1) {
        *at = static_cast<unsigned char>(value);
    } else {
        std::memcpy(at, &half, sizeof half);
    }
}

TSynProfile deployedProfile() {
    TSynProfile profile{};
    profile.recordSize = sizeof profile;
    profile.utcOffset = kUtcOffsetSince2017;
    return profile;
}

TSynProfile inForce = deployedProfile();

}  // namespace

const TSynProfile& profile::current() {
    return inForce;
}

const char* profile::mistakeIn(const TSynProfile& given) {
    if (given.recordSize != sizeof(TSynProfile)) {
        return "recordSize";
    }
    for (const Switch& each : kSwitches) {
        if (valueOf(given, each) > each.highest) {
            return each.name;
        }
    }
    return nullptr;
}

bool profile::preset(unsigned int number, TSynProfile& filled) {
    if (number > TSYN_PRESET_STANDARD) {
        return false;
    }
    filled = deployedProfile();
    if (number == TSYN_PRESET_STANDARD) {
        for (const Switch& each : kSwitches) {
            setValue(filled, each, each.standard);
        }
    }
    return true;
}

bool profile::setSwitch(TSynProfile& given, const char* name, int value) {
    for (const Switch& each : kSwitches) {
        if (std::strcmp(each.name, name) == 0 && value >= 0 && value <= each.highest) {
            setValue(given, each, value);
            return true;
        }
    }
    return false;
}

void profile::apply(const TSynProfile& given) {
    inForce = given;
    segmentMode = given.segmentMode;
    cardSteps.receiveFrame = given.eventPumps != 0 ? receiveQueuedFrame : receiveFrameShortly;
    loopSteps.tick = given.robustTime != 0 ? time_steps::tick : tellNothing;
    loopSteps.end = given.robustTime != 0 ? time_steps::end : tellNothing;
    log_switches::install(given);
    wire_steps::install(given);
    time_steps::install(given);
}
