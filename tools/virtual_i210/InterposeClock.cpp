#include <cerrno>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/PhcReading.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/Timespec.h"

/** Dynamic clocks: the kernel derives their number from the descriptor of the open device. */

namespace {

using virtual_i210::CardState;
using virtual_i210::Counter;
using virtual_i210::Descriptor;
using virtual_i210::failWith;
using virtual_i210::kMaxAdjustmentPpb;
using virtual_i210::kNsPerSecond;
using virtual_i210::real;

Descriptor* phcOfClock(clockid_t clock) {
    if (clock >= 0 || (clock & 7) != 3) {
        return nullptr;
    }
    return virtual_i210::descriptorOf(~(clock >> 3), virtual_i210::DescriptorKind::kPhc);
}

CardState& cardOf(const Descriptor& phc) {
    return virtual_i210::attachedState()->cards[phc.card.load()];
}

int stepBy(CardState& card, const timex& adjustment) {
    const std::int64_t scale = (adjustment.modes & ADJ_NANO) != 0 ? 1 : 1000;
    const std::int64_t below = static_cast<std::int64_t>(adjustment.time.tv_usec) * scale;
    if (below < 0 || below >= kNsPerSecond) {
        return failWith(EINVAL);
    }
    card.stepPhc(static_cast<std::int64_t>(adjustment.time.tv_sec) * kNsPerSecond + below);
    return 0;
}

int tuneTo(CardState& card, std::int64_t scaledPpm) {
    const std::int64_t ppb = scaledPpm * 1000 / 65536;
    if (ppb > kMaxAdjustmentPpb || ppb < -kMaxAdjustmentPpb) {
        return failWith(ERANGE);
    }
    card.adjust(scaledPpm);
    return 0;
}

int adjustPhc(CardState& card, timex& adjustment) {
    if ((adjustment.modes & ADJ_SETOFFSET) != 0) {
        return stepBy(card, adjustment);
    }
    if ((adjustment.modes & ADJ_FREQUENCY) != 0) {
        return tuneTo(card, adjustment.freq);
    }
    if (adjustment.modes != 0) {
        return failWith(EOPNOTSUPP);
    }
    adjustment.freq = static_cast<long>(card.clock.current().adjustmentScaledPpm);
    return 0;
}

int answerSystemClock(clockid_t clock, timespec* time) {
    std::uint64_t ns = 0;
    if (!virtual_i210::timeIsSimulated()) {
        return real().clockGettime(clock, time);
    }
    const virtual_i210::ClockReading reading;
    if (!virtual_i210::simulatedClock(clock, ns)) {
        return real().clockGettime(clock, time);
    }
    *time = virtual_i210::toTimespec(static_cast<std::int64_t>(ns));
    return 0;
}

/** The clock of the simulated machine, never that of the real one. */
int setSystemClock(clockid_t clock, const timespec& time) {
    virtual_i210::Conductor* conductor = virtual_i210::attachedConductor();
    if (conductor == nullptr) {
        return real().clockSettime(clock, &time);
    }
    virtual_i210::chargeCall();
    if (clock != CLOCK_REALTIME || time.tv_nsec < 0 || time.tv_nsec >= kNsPerSecond) {
        return failWith(EINVAL);
    }
    conductor->setRealtimeOffsetNs(virtual_i210::toNs(time) -
                                   static_cast<std::int64_t>(conductor->nowNs()));
    return 0;
}

/** A simulated system clock can be asked for its rate but runs as it runs. */
int adjustSystemClock(clockid_t clock, timex& adjustment) {
    if (!virtual_i210::timeIsSimulated()) {
        return real().clockAdjtime(clock, &adjustment);
    }
    virtual_i210::chargeCall();
    if (adjustment.modes != 0) {
        return failWith(EPERM);
    }
    adjustment = timex{};
    adjustment.tick = 10'000;
    return TIME_OK;
}

}  // namespace

VIRTUAL_I210_EXPORT int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const Descriptor* phc = phcOfClock(clock);
    if (phc == nullptr) {
        return answerSystemClock(clock, time);
    }
    *time = virtual_i210::toTimespec(virtual_i210::readPhcNs(cardOf(*phc)));
    return 0;
}

VIRTUAL_I210_EXPORT int clock_getres(clockid_t clock, timespec* resolution) noexcept {
    if (phcOfClock(clock) == nullptr) {
        return real().clockGetres(clock, resolution);
    }
    if (resolution != nullptr) {
        *resolution = virtual_i210::toTimespec(1);
    }
    return 0;
}

VIRTUAL_I210_EXPORT int clock_settime(clockid_t clock, const timespec* time) noexcept {
    const Descriptor* phc = phcOfClock(clock);
    if (phc == nullptr) {
        return setSystemClock(clock, *time);
    }
    if (!phc->writable.load()) {
        return failWith(EACCES);
    }
    if (time->tv_sec < 0 || time->tv_nsec < 0 || time->tv_nsec >= kNsPerSecond) {
        return failWith(EINVAL);
    }
    CardState& card = cardOf(*phc);
    card.setPhc(virtual_i210::toNs(*time));
    card.count(Counter::kClockAdjustments);
    return 0;
}

VIRTUAL_I210_EXPORT int clock_adjtime(clockid_t clock, timex* adjustment) noexcept {
    const Descriptor* phc = phcOfClock(clock);
    if (phc == nullptr) {
        return adjustSystemClock(clock, *adjustment);
    }
    if (adjustment->modes != 0 && !phc->writable.load()) {
        return failWith(EACCES);
    }
    CardState& card = cardOf(*phc);
    const int result = adjustPhc(card, *adjustment);
    if (result == 0 && adjustment->modes != 0) {
        card.count(Counter::kClockAdjustments);
    }
    return result;
}
