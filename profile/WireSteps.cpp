#include "profile/WireSteps.h"

#include "autosar/SubTlvAttach.h"
#include "profile/Answers.h"
#include "profile/Masters.h"
#include "profile/OwnMessages.h"
#include "profile/PortTable.h"
#include "profile/Profile.h"
#include "profile/Quality.h"
#include "ptp/ProtocolSteps.h"
#include "ptp/SyncEstimate.h"
#include "timebase/TimeChanges.h"
#include "wire/ptpwire.h"

namespace {

constexpr unsigned int kHeaderSize = sizeof(ptpv2hdr_t);
constexpr unsigned int kShortestAnnounce = 64;

bool judges(const TSynProfile& profile) {
    return profile.oneMaster != 0 || profile.soleAnswer != 0 || profile.receiveStampRequired != 0 ||
           profile.answersPerSecond != 0 || profile.portTableLimit != 0;
}

unsigned int shortestLength(unsigned int type) {
    switch (type) {
    case wire::kSync:
    case wire::kFollowUp:
        return wire::kSyncLength;
    case wire::kPdelayReq:
    case wire::kPdelayResp:
    case wire::kPdelayRespFollowUp:
        return wire::kPdelayLength;
    case wire::kAnnounce:
        return kShortestAnnounce;
    default:
        return kHeaderSize;
    }
}

/** Of what a message says of its length, all was received, and it is enough for its type. */
bool isWhole(const unsigned char* message, unsigned int length) {
    return length >= kHeaderSize && wire::messageLength(message) <= length &&
           wire::messageLength(message) >= shortestLength(wire::messageType(message));
}

bool isStamped(const unsigned char* message, unsigned long long rxNs) {
    const unsigned int type = wire::messageType(message);
    const bool isEvent =
        type == wire::kSync || type == wire::kPdelayReq || type == wire::kPdelayResp;
    if (isEvent && rxNs == 0) {
        quality::countUnstampedFrame();
        return false;
    }
    return true;
}

/** Whom it comes from decides before its stamp does: what is not believed counts as such. */
bool isBelieved(const unsigned char* message, unsigned int length, unsigned long long rxNs,
                const TSynProfile& profile) {
    if (!isWhole(message, length) || (profile.oneMaster != 0 && !masters::admits(message)) ||
        (profile.soleAnswer != 0 && !answers::admits(message)) ||
        (profile.receiveStampRequired != 0 && !isStamped(message, rxNs)) ||
        (profile.answersPerSecond != 0 &&
         !answers::isWithinRate(message, profile.answersPerSecond))) {
        return false;
    }
    if (profile.portTableLimit != 0) {
        port_table::makeRoom(message, profile.portTableLimit);
    }
    return true;
}

bool admitsAsProfiled(unsigned char* message, unsigned int length, unsigned long long rxNs) {
    const TSynProfile& profile = profile::current();
    // What a message says of its version beyond the major number is no reason to refuse it.
    if (profile.anyMinorVersion != 0 && length > wire::kVersion) {
        message[wire::kVersion] &= wire::kVersionMask;
    }
    return !judges(profile) || isBelieved(message, length, rxNs, profile);
}

bool changesMessages(const TSynProfile& profile) {
    return profile.onePortNumber != 0 || profile.configuredLogInterval != 0 ||
           profile.timescale != TSYN_TIMESCALE_UNTOLD || profile.timeChangeMarks != 0;
}

}  // namespace

void wire_steps::install(const TSynProfile& profile) {
    const bool believesSome = judges(profile);
    protocolSteps.admits =
        profile.anyMinorVersion != 0 || believesSome ? admitsAsProfiled : admitsEverything;
    own_messages::sayRequestPeriod(0);
    protocolSteps.portNumber =
        profile.onePortNumber != 0 ? own_messages::alwaysOne : numberOfInterface;
    protocolSteps.finishAnswer =
        profile.standardResponses != 0 ? own_messages::finishStandardAnswer : leaveAnswer;
    protocolSteps.finish =
        changesMessages(profile) || believesSome ? own_messages::finishAsProfiled : leaveMessage;
    // Threads of their own open the card's clock by this reading.
    protocolSteps.requestOrigin =
        profile.eventPumps != 0 ? own_messages::noRequestOrigin : requestReadsPhc;
    protocolSteps.masterRateRatio =
        profile.signedRateOffset != 0 ? own_messages::signedRateRatio : masterRateRatio;
    protocolSteps.clockSeconds =
        profile.timescale == TSYN_TIMESCALE_TAI ? own_messages::taiSeconds : sameSeconds;
    const bool marksSteps = profile.timeChangeMarks != 0;
    timeChanges.onHardTime = marksSteps ? own_messages::noteHardTime : ignoreHardTime;
    timeChanges.onSoftTime = marksSteps ? own_messages::noteSoftTime : ignoreSoftTime;
    autosarPadding = profile.evenTlvs != 0 ? own_messages::padToEven : padNothing;
}
