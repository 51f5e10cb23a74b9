#include "profile/Quality.h"

#include <pthread.h>
#include <unistd.h>

#include <cstring>

#include "base/MutexLock.h"
#include "profile/Profile.h"

namespace {

pthread_mutex_t seenMutex = PTHREAD_MUTEX_INITIALIZER;
gPtpTimeQuality seen{};

template <typename Count>
void count(Count gPtpTimeQuality::*member) {
    const QuietLock lock(seenMutex);
    seen.*member = static_cast<Count>(seen.*member + 1);
}

}  // namespace

void quality::noteMaster(const unsigned char* identity, unsigned short port) {
    const QuietLock lock(seenMutex);
    std::memcpy(seen.masterIdentity, identity, sizeof seen.masterIdentity);
    seen.masterPort = port;
}

void quality::noteNoMaster() {
    constexpr unsigned char kNobody[8] = {};
    noteMaster(kNobody, 0);
}

void quality::setFlag(TSynTimeFlags flag, bool on) {
    const QuietLock lock(seenMutex);
    seen.flags = static_cast<unsigned char>(on ? seen.flags | flag : seen.flags & ~flag);
}

void quality::countIgnoredFrame() {
    count(&gPtpTimeQuality::ignoredFrames);
}

void quality::countUnstampedFrame() {
    count(&gPtpTimeQuality::unstampedFrames);
}

void quality::countStrayStamp() {
    count(&gPtpTimeQuality::strayStamps);
}

void quality::countUnusedExchange() {
    count(&gPtpTimeQuality::unusedExchanges);
}

void quality::countRefusedSample() {
    count(&gPtpTimeQuality::refusedSamples);
}

void quality::countStep() {
    count(&gPtpTimeQuality::stepCount);
}

void quality::fill(gPtpTimeQuality& filled) {
    const QuietLock lock(seenMutex);
    filled.magic = kTimeQualityMagic;
    filled.layout = kTimeQualityLayout;
    filled.profile =
        profile::current().robustTime != 0 ? TSYN_PRESET_STANDARD : TSYN_PRESET_DEPLOYED;
    filled.flags = seen.flags;
    // A process that was forked has no thread of the daemon but those that it starts itself.
    thread_local const auto ownPid = static_cast<unsigned int>(getpid());
    filled.ownerPid = ownPid;
    std::memcpy(filled.masterIdentity, seen.masterIdentity, sizeof filled.masterIdentity);
    filled.masterPort = seen.masterPort;
    filled.stepCount = seen.stepCount;
    filled.ignoredFrames = seen.ignoredFrames;
    filled.unstampedFrames = seen.unstampedFrames;
    filled.strayStamps = seen.strayStamps;
    filled.unusedExchanges = seen.unusedExchanges;
    filled.refusedSamples = seen.refusedSamples;
}
