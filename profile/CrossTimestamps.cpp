#include "profile/CrossTimestamps.h"

#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <limits>

#include "base/Extended80.h"
#include "platform/CrossTimestamp.h"

namespace {

using cross_timestamps::Bracketed;

/** Few, so that the reading is short; the narrowest of them is nearly always undisturbed. */
constexpr unsigned int kExtendedSamples = 12;
constexpr unsigned int kPlainSamples = 25;
/** The device latches both clocks; what remains is its own conversion. */
constexpr unsigned int kPreciseHalfWidth = 10;

enum class Means { kUnknown, kPrecise, kExtended, kPlain };

std::atomic<Means> means{Means::kUnknown};
thread_local unsigned int lastHalfWidth = cross_timestamps::kUnknownHalfWidth;

bool readPrecisely(int phcDevice, Bracketed& read) {
    ptp_sys_offset_precise offset{};
    if (ioctl(phcDevice, PTP_SYS_OFFSET_PRECISE, &offset) != 0) {
        return false;
    }
    read = {{clockNs(offset.sys_realtime), clockNs(offset.device)}, kPreciseHalfWidth};
    return true;
}

bool readExtended(int phcDevice, Bracketed& read) {
    ptp_sys_offset_extended offset{};
    offset.n_samples = kExtendedSamples;
    if (ioctl(phcDevice, PTP_SYS_OFFSET_EXTENDED, &offset) != 0) {
        return false;
    }
    read = cross_timestamps::narrowest(offset.ts, kExtendedSamples);
    return true;
}

bool readPlainly(int phcDevice, Bracketed& read) {
    ptp_sys_offset offset{};
    offset.n_samples = kPlainSamples;
    if (ioctl(phcDevice, PTP_SYS_OFFSET, &offset) != 0) {
        return false;
    }
    ptp_clock_time samples[kPlainSamples][3];
    for (std::size_t i = 0; i < kPlainSamples; ++i) {
        samples[i][0] = offset.ts[2 * i];
        samples[i][1] = offset.ts[2 * i + 1];
        samples[i][2] = offset.ts[2 * i + 2];
    }
    read = cross_timestamps::narrowest(samples, kPlainSamples);
    return true;
}

/** The first means that the device has; asked for once, since a refusal costs a call each time. */
bool readByFirstMeans(int phcDevice, Bracketed& read) {
    if (readPrecisely(phcDevice, read)) {
        means = Means::kPrecise;
    } else if (readExtended(phcDevice, read)) {
        means = Means::kExtended;
    } else if (readPlainly(phcDevice, read)) {
        means = Means::kPlain;
    } else {
        return false;
    }
    return true;
}

bool readDevice(int phcDevice, Bracketed& read) {
    switch (means.load()) {
    case Means::kPrecise:
        return readPrecisely(phcDevice, read);
    case Means::kExtended:
        return readExtended(phcDevice, read);
    case Means::kPlain:
        return readPlainly(phcDevice, read);
    case Means::kUnknown:
        break;
    }
    return readByFirstMeans(phcDevice, read);
}

}  // namespace

Bracketed cross_timestamps::narrowest(const ptp_clock_time (*samples)[3], unsigned int count) {
    Bracketed best{{0, 0}, kUnknownHalfWidth};
    long long narrowestNs = std::numeric_limits<long long>::max();
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned long long before = clockNs(samples[i][0]);
        const long long widthNs = signedDiff(clockNs(samples[i][2]), before);
        // The system clock was set back within this one.
        if (widthNs < 0 || widthNs >= narrowestNs) {
            continue;
        }
        narrowestNs = widthNs;
        const auto halfNs = static_cast<unsigned long long>(widthNs) / 2;
        best.times = {before + halfNs, clockNs(samples[i][1])};
        constexpr unsigned long long kWidest = std::numeric_limits<unsigned int>::max() - 1;
        best.halfWidthNs = static_cast<unsigned int>(halfNs < kWidest ? halfNs + 1 : kWidest);
    }
    return best;
}

ptp_ext_time_t cross_timestamps::best(int phcDevice) {
    Bracketed read{{0, 0}, kUnknownHalfWidth};
    // Descriptor 0 is the host's.
    if (phcDevice <= 0 || !readDevice(phcDevice, read)) {
        read = {{0, 0}, kUnknownHalfWidth};
    }
    lastHalfWidth = read.halfWidthNs;
    return read.times;
}

unsigned int cross_timestamps::lastHalfWidthNs() {
    return lastHalfWidth;
}
