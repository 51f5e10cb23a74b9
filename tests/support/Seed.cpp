#include "tests/support/Seed.h"

#include <cstdio>
#include <cstdlib>

std::mt19937_64 seededGenerator() {
    constexpr unsigned long long kUsualSeed = 88;
    const char* const wanted = std::getenv("ZEB_TEST_SEED");
    const unsigned long long seed =
        wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : kUsualSeed;
    std::fprintf(stderr, "ZEB_TEST_SEED=%llu\n", seed);
    return std::mt19937_64(seed);
}
