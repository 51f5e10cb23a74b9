#pragma once

#include <vector>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

/** One of the numbers that a daemon only ever counts up. */
struct Counter {
    const char* key;   /**< as JSON has it */
    const char* label; /**< for people */
    unsigned int value;
};

/** Those that every record has. */
std::vector<Counter> recordCountersOf(const Look& look);

/** All that this daemon keeps, always in one order: of a record, then of its quality. */
std::vector<Counter> countersOf(const Look& look);

/** By how much each one grew per second; zeros when the daemon began anew in between. */
std::vector<double> countsPerSecond(const Look& before, const Look& after);

/** Counters fell, or another process or segment took over: nothing of before goes on. */
bool beganAnew(const Look& before, const Look& after);

}  // namespace tsyn
