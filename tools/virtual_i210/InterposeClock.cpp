#include <cerrno>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/PhcReading.h"
#include "tools/virtual_i210/RealFunctions.h"

// Dynamic clocks: the kernel derives their number from the descriptor of the open device.

namespace {

using virtual_i210::CardState;
using virtual_i210::Counter;
using virtual_i210::Descriptor;
using virtual_i210::real;

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr int kMaxAdjustmentPpb = 62'499'999;

Descriptor* phcOfClock(clockid_t clock) {
    if (clock >= 0 || (clock & 7) != 3) {
        return nullptr;
    }
    return virtual_i210::descriptorOf(~(clock >> 3), virtual_i210::DescriptorKind::Phc);
}

CardState& cardOf(const Descriptor& phc) {
    return virtual_i210::attachedState()->cards[phc.card.load()];
}

int fail(int errorNumber) {
    errno = errorNumber;
    return -1;
}

void splitNs(std::int64_t ns, timespec& time) {
    std::int64_t remainder = ns % kNsPerSecond;
    std::int64_t seconds = ns / kNsPerSecond;
    if (remainder < 0) {
        remainder += kNsPerSecond;
        --seconds;
    }
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = static_cast<long>(remainder);
}

int stepBy(CardState& card, const timex& adjustment) {
    const std::int64_t scale = (adjustment.modes & ADJ_NANO) != 0 ? 1 : 1000;
    const std::int64_t below = static_cast<std::int64_t>(adjustment.time.tv_usec) * scale;
    if (below < 0 || below >= kNsPerSecond) {
        return fail(EINVAL);
    }
    card.stepPhc(static_cast<std::int64_t>(adjustment.time.tv_sec) * kNsPerSecond + below);
    return 0;
}

int tuneTo(CardState& card, std::int64_t scaledPpm) {
    const std::int64_t ppb = scaledPpm * 1000 / 65536;
    if (ppb > kMaxAdjustmentPpb || ppb < -kMaxAdjustmentPpb) {
        return fail(ERANGE);
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
        return fail(EOPNOTSUPP);
    }
    adjustment.freq = static_cast<long>(card.clock.current().adjustmentScaledPpm);
    return 0;
}

}  // namespace

VIRTUAL_I210_EXPORT int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const Descriptor* phc = phcOfClock(clock);
    if (phc == nullptr) {
        return real().clockGettime(clock, time);
    }
    splitNs(virtual_i210::readPhcNs(cardOf(*phc)), *time);
    return 0;
}

VIRTUAL_I210_EXPORT int clock_getres(clockid_t clock, timespec* resolution) noexcept {
    if (phcOfClock(clock) == nullptr) {
        return real().clockGetres(clock, resolution);
    }
    if (resolution != nullptr) {
        splitNs(1, *resolution);
    }
    return 0;
}

VIRTUAL_I210_EXPORT int clock_settime(clockid_t clock, const timespec* time) noexcept {
    const Descriptor* phc = phcOfClock(clock);
    if (phc == nullptr) {
        return real().clockSettime(clock, time);
    }
    if (!phc->writable.load()) {
        return fail(EACCES);
    }
    if (time->tv_sec < 0 || time->tv_nsec < 0 || time->tv_nsec >= kNsPerSecond) {
        return fail(EINVAL);
    }
    CardState& card = cardOf(*phc);
    card.setPhc(static_cast<std::int64_t>(time->tv_sec) * kNsPerSecond + time->tv_nsec);
    card.count(Counter::ClockAdjustments);
    return 0;
}

VIRTUAL_I210_EXPORT int clock_adjtime(clockid_t clock, timex* adjustment) noexcept {
    const Descriptor* phc = phcOfClock(clock);
    if (phc == nullptr) {
        return real().clockAdjtime(clock, adjustment);
    }
    if (adjustment->modes != 0 && !phc->writable.load()) {
        return fail(EACCES);
    }
    CardState& card = cardOf(*phc);
    const int result = adjustPhc(card, *adjustment);
    if (result == 0 && adjustment->modes != 0) {
        card.count(Counter::ClockAdjustments);
    }
    return result;
}
