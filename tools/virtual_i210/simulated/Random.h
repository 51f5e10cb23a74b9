#pragma once

#include <cstdint>

namespace virtual_i210 {

/** Mixes all bits of a 64-bit value; the same value gives the same result in every process. */
inline std::uint64_t mixBits(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15u;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

/** What random numbers are for; each has an independent stream. */
enum class RandomStream : std::uint64_t {
    kWanderPhase,
    kCardSeed,
    kReadDuration,
    kReadLatch,
    kReceiveJitter,
    kSimulation,
};

/** The `counter`-th number of one of the streams that grow from a seed. */
inline std::uint64_t seededRandom(std::uint64_t seed, RandomStream stream, std::uint64_t counter) {
    return mixBits(mixBits(mixBits(seed) ^ static_cast<std::uint64_t>(stream)) ^ counter);
}

}  // namespace virtual_i210
