#include "profile/OwnMessages.h"

#include <net/if.h>
#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "api/InterfaceDataManager.h"
#include "base/Extended80.h"
#include "base/Monotonic.h"
#include "base/MutexLock.h"
#include "platform/i210helper.h"
#include "profile/Answers.h"
#include "profile/Profile.h"
#include "profile/StepMarks.h"
#include "ptp/LinkDelay.h"
#include "ptp/ProtocolSteps.h"
#include "wire/ptpwire.h"

namespace {

constexpr unsigned char kControlOther = 5;
constexpr unsigned char kUtcOffsetValidFlag = 0x04;
constexpr double kMillisecondsPerSecond = 1000.0;
constexpr double kSqrt2 = 1.41421356237309504880;
constexpr int kLongestLogInterval = 126;  // 127 says that there is none
constexpr int kMinorSdoId = 5;
constexpr int kMessageTypeSpecific = 16;
constexpr int kCurrentUtcOffset = 44;
constexpr int kPhaseChangeNs = wire::kLastGmPhaseChange + 2;  // of 96 bits, in ns * 2^16

pthread_mutex_t marksMutex = PTHREAD_MUTEX_INITIALIZER;
StepMarks marks;
unsigned long long requestPeriodNs = 0;  ///< 0: as deployed

void storeLogInterval(unsigned char* message, double milliseconds) {
    if (milliseconds > 0 && std::isfinite(milliseconds)) {
        // Each message asks, and the exponent of a number is its logarithm rounded up: half a power
        // of two beforehand makes the nearest of it.
        int exponent = 0;
        static_cast<void>(std::frexp(milliseconds / kMillisecondsPerSecond * kSqrt2, &exponent));
        message[wire::kLogMessageInterval] =
            static_cast<unsigned char>(std::min(exponent - 1, kLongestLogInterval));
    }
}

void storeConfiguredInterval(unsigned char* message) {
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (instance == nullptr) {
        return;
    }
    const double syncInterval = instance->block.cfg.syncInterval;
    switch (wire::messageType(message)) {
    case wire::kSync:
    case wire::kFollowUp:
        storeLogInterval(message, syncInterval);
        break;
    case wire::kPdelayReq:
        storeLogInterval(message, requestPeriodNs != 0
                                      ? static_cast<double>(requestPeriodNs) / kNsPerMillisecond
                                      : syncInterval * kSyncsPerPdelay);
        break;
    default:
        break;  // answers have none, and an Announce comes each second: 0, as it stands
    }
}

void storeTimescale(unsigned char* message, const TSynProfile& profile) {
    unsigned char& flags = message[wire::kFlags + 1];
    const bool isAnnounce = wire::messageType(message) == wire::kAnnounce;
    flags = static_cast<unsigned char>(flags & ~(wire::kPtpTimescaleFlag | kUtcOffsetValidFlag));
    if (profile.timescale != TSYN_TIMESCALE_TAI) {
        return;
    }
    flags |= wire::kPtpTimescaleFlag;
    if (isAnnounce) {
        flags |= kUtcOffsetValidFlag;
        wire::store16(message + kCurrentUtcOffset, static_cast<unsigned int>(profile.utcOffset));
    }
}

void storeMarks(unsigned char* followUp) {
    const MutexLock lock(marksMutex);
    const StepMarks::Told told =
        marks.ofFollowUp(toNs(wire::loadTimestamp(followUp + wire::kTimestamp)));
    wire::store16(followUp + wire::kGmTimeBaseIndicator, told.count);
    const unsigned int sign = told.lastNs < 0 ? 0xFFFF : 0;
    wire::store16(followUp + wire::kLastGmPhaseChange, sign);
    wire::storeBigEndian<8>(followUp + kPhaseChangeNs,
                            static_cast<unsigned long long>(told.lastNs));
}

void markSteps(unsigned char* message) {
    const unsigned int type = wire::messageType(message);
    if (type == wire::kSync) {
        const MutexLock lock(marksMutex);
        marks.noteSync(monotonicNs());
    } else if (type == wire::kFollowUp) {
        storeMarks(message);
    }
}

}  // namespace

unsigned short own_messages::alwaysOne(unsigned int /*interfaceIndex*/) {
    return 1;
}

void own_messages::finishStandardAnswer(unsigned char* answer, const unsigned char* request,
                                        NetworkService<sock>* service) {
    const bool isResponse = wire::messageType(answer) == wire::kPdelayResp;
    answer[wire::kVersion] = wire::kVersionPtp;
    wire::store16(answer + wire::kMessageLength, wire::kPdelayLength);
    answer[kMinorSdoId] = 0;
    answer[wire::kFlags] = isResponse ? wire::kTwoStepFlag : 0;
    answer[wire::kFlags + 1] = wire::kPtpTimescaleFlag;
    wire::storeBigEndian<8>(answer + wire::kCorrectionField,
                            isResponse ? 0 : wire::load64(request + wire::kCorrectionField));
    wire::storeBigEndian<4>(answer + kMessageTypeSpecific, 0);
    // The look-up costs three system calls, and finishAsProfiled stores the one number itself.
    if (profile::current().onePortNumber == 0) {
        wire::store16(answer + wire::kSourcePortNumber,
                      protocolSteps.portNumber(if_nametoindex(GetInterfaceName(service))));
    }
    answer[wire::kControl] = kControlOther;
    answer[wire::kLogMessageInterval] = wire::kLogIntervalUnknown;
}

void own_messages::finishAsProfiled(unsigned char* message) {
    const TSynProfile& profile = profile::current();
    if (profile.onePortNumber != 0) {
        wire::store16(message + wire::kSourcePortNumber, 1);
    }
    if (profile.configuredLogInterval != 0) {
        storeConfiguredInterval(message);
    }
    if (profile.timescale != TSYN_TIMESCALE_UNTOLD) {
        storeTimescale(message, profile);
    }
    if (profile.timeChangeMarks != 0) {
        markSteps(message);
    }
    if (wire::messageType(message) == wire::kPdelayReq) {
        answers::noteRequest(message);
    }
}

long long own_messages::noRequestOrigin(const char* /*interfaceName*/) {
    return 0;
}

unsigned int own_messages::taiSeconds(unsigned int systemSeconds) {
    return systemSeconds + static_cast<unsigned int>(profile::current().utcOffset);
}

unsigned int own_messages::padToEven(unsigned int valueSize) {
    return valueSize % 2;
}

long double own_messages::signedRateRatio(unsigned int cumulativeScaledRateOffset) {
    return 1 + static_cast<long double>(static_cast<int>(cumulativeScaledRateOffset)) * 0x1p-41L;
}

void own_messages::noteHardTime(const char* interfaceName, unsigned long long ns) {
    const long long before = i210helper::e1000_ptp_get_time(interfaceName);
    if (before != 0) {
        noteSoftTime(signedDiff(ns, static_cast<unsigned long long>(before)));
    }
}

void own_messages::noteSoftTime(long long stepNs) {
    const MutexLock lock(marksMutex);
    marks.noteStep(stepNs);
}

void own_messages::sayRequestPeriod(unsigned long long ns) {
    requestPeriodNs = ns;
}
