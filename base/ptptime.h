#pragma once

#include <ctime>
#include <type_traits>

inline constexpr unsigned kNsPerSecond = 1000000000;
inline constexpr unsigned kNsPerMillisecond = 1000000;

#pragma pack(push, 4)
/** A hardware timestamp; 12 bytes, so that pumps copy it as three 32-bit words. */
struct ptp_time_t {
    unsigned long long seconds;
    unsigned int nanoseconds;
};

/** A cross-timestamp: both clocks at one instant, ns. */
struct ptp_ext_time_t {
    unsigned long long systemTime;
    unsigned long long phcTime;
};
#pragma pack(pop)

static_assert(sizeof(ptp_time_t) == 12, "three 32-bit words");
static_assert(std::is_trivially_copyable<ptp_time_t>::value, "copied as words");
static_assert(sizeof(ptp_ext_time_t) == 16, "two 64-bit values");

/** Nanoseconds of a seconds and nanoseconds pair; wraps modulo 2^64. */
constexpr unsigned long long toNs(unsigned long long seconds, unsigned long long nanoseconds) {
    return seconds * kNsPerSecond + nanoseconds;
}

constexpr unsigned long long toNs(const ptp_time_t& time) {
    return toNs(time.seconds, time.nanoseconds);
}

/** Widens before multiplying: tv_sec has 32 bits on i386. */
constexpr unsigned long long toNs(const timespec& time) {
    return toNs(static_cast<unsigned long long>(static_cast<long long>(time.tv_sec)),
                static_cast<unsigned long long>(static_cast<long long>(time.tv_nsec)));
}

constexpr ptp_time_t toPtpTime(unsigned long long ns) {
    return {ns / kNsPerSecond, static_cast<unsigned int>(ns % kNsPerSecond)};
}

/** Process CPU time in signed 32-bit nanoseconds, widened: readers of the reference record know
 *  the value modulo 2^32, so it wraps from 2.147483648 s on. */
constexpr long long wrappedCpuTimeNs(const timespec& cpuTime) {
    return static_cast<int>(static_cast<unsigned>(toNs(cpuTime)));
}
