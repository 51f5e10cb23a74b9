#pragma once

#include <cstdint>

namespace virtual_i210 {

// Mixes all bits of a 64-bit value; the same value gives the same result in every process.
inline std::uint64_t mixBits(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15u;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

// The `counter`-th number of one of the independent streams that grow from a seed.
inline std::uint64_t seededRandom(std::uint64_t seed, std::uint64_t stream, std::uint64_t counter) {
    return mixBits(mixBits(mixBits(seed) ^ stream) ^ counter);
}

}  // namespace virtual_i210
