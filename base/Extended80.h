#pragma once

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

/** Bytes that an x87 80-bit extended value occupies; its storage has 12, the last two zero. */
inline constexpr std::size_t kExtendedBytes = 10;
inline constexpr std::size_t kExtendedStorage = 12;

static_assert(LDBL_MANT_DIG == 64, "long double is the x87 80-bit type");

inline long double loadExtended(const unsigned char* storage) {
    long double value = 0;
    std::memcpy(&value, storage, kExtendedBytes);
    return value;
}

/** Writes ten bytes only: the padding of a long double holds stack contents. */
inline void storeExtended(unsigned char* storage, long double value) {
    std::memcpy(storage, &value, kExtendedBytes);
}

/** a - b where a negative difference reads as 2^64 plus the difference. */
constexpr long double unsignedDiff(unsigned long long a, unsigned long long b) {
    return static_cast<long double>(a - b);
}

/** a - b as a signed 64-bit value, wrapping. */
constexpr long long signedDiff(unsigned long long a, unsigned long long b) {
    return static_cast<long long>(a - b);
}

/** Truncates toward zero; what no signed 64-bit value holds gives the smallest one, as the target's
 *  floating-point unit stores it. */
inline long long toS64(long double value) {
    constexpr long double kLimit = 9223372036854775808.0L;
    if (!(value >= -kLimit && value < kLimit)) {
        return std::numeric_limits<long long>::min();
    }
    return static_cast<long long>(value);
}

/** Converts to unsigned 64-bit: 2^63 and more less 2^63 with the top bit then set, negative values
 *  in two's complement, anything else (infinity, NaN) 0x8000000000000000. */
inline unsigned long long doubleToU64(double value) {
    constexpr double kTopBitValue = 9223372036854775808.0;
    constexpr unsigned long long kTopBit = 1ULL << 63;
    if (value >= kTopBitValue) {
        const long double rest = static_cast<long double>(value) - kTopBitValue;
        return static_cast<unsigned long long>(toS64(rest)) | kTopBit;
    }
    return static_cast<unsigned long long>(toS64(value));
}
