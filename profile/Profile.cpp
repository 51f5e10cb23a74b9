#include "profile/Profile.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "platform/CardSteps.h"
#include "profile/LogSwitches.h"
#include "profile/LoopSteps.h"
#include "profile/SegmentSwitches.h"
#include "profile/TimeSteps.h"
#include "profile/WireSteps.h"

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
    ZEB_SWITCH(segmentRequired, 1, 1),
    ZEB_SWITCH(segmentMode, kHighestMode, 0644),
    ZEB_SWITCH(logThreshold, kHighestLevel, 0),
    ZEB_SWITCH(logLinesPerSecond, kAnyHalf, 5),
    ZEB_SWITCH(utcOffset, kAnyHalf / 2, kUtcOffsetSince2017),
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

bool namesMaster(const TSynProfile& profile) {
    return std::any_of(std::begin(profile.masterIdentity), std::end(profile.masterIdentity),
                       [](unsigned char byte) { return byte != 0; });
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

profile::Mistake profile::mistakeIn(const TSynProfile& given) {
    if (given.recordSize != sizeof(TSynProfile)) {
        return {"recordSize", nullptr};
    }
    for (const Switch& each : kSwitches) {
        if (valueOf(given, each) > each.highest) {
            return {each.name, nullptr};
        }
    }
    if (given.reserved1 != 0 || given.reserved2 != 0) {
        return {given.reserved1 != 0 ? "reserved1" : "reserved2", nullptr};
    }
    // Only the event loop watches the link.
    if (given.followLink != 0 && given.eventPumps == 0) {
        return {"followLink", "eventPumps"};
    }
    if (given.oneMaster == 0 && namesMaster(given)) {
        return {"masterIdentity", "oneMaster"};
    }
    return {nullptr, nullptr};
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

const char* profile::switchOf(unsigned int number, int& highest) {
    if (number >= std::size(kSwitches)) {
        return nullptr;
    }
    highest = kSwitches[number].highest;
    return kSwitches[number].name;
}

void profile::apply(const TSynProfile& given) {
    inForce = given;
    segment_switches::install(given);
    cardSteps.receiveFrame = given.eventPumps != 0 ? receiveQueuedFrame : receiveFrameShortly;
    loopSteps.begin = given.robustTime != 0 ? time_steps::begin : beginUntold;
    loopSteps.tick = given.robustTime != 0 ? time_steps::tick : tellNothing;
    loopSteps.usedPairs = given.robustTime != 0 ? time_steps::usedPairs : countEveryPair;
    loopSteps.end = given.robustTime != 0 ? time_steps::end : tellNothing;
    log_switches::install(given);
    wire_steps::install(given);
    time_steps::install(given);
}
