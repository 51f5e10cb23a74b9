#pragma once

#include <random>

/** Generator of a random test, seeded by ZEB_TEST_SEED or a fixed number. Prints its seed on
 *  standard error. */
std::mt19937_64 seededGenerator();
