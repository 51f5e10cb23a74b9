#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/simulate/Samples.h"

namespace simulate {

/** A value and when it was, in seconds from the beginning of the run. */
struct Timed {
    double atS = 0.0;
    double value = 0.0;
};

/** Of the values' size, but the mean, which has its sign. */
struct Statistics {
    std::size_t count = 0;
    double p50 = 0.0;
    double p99 = 0.0;
    double max = 0.0;
    double rms = 0.0;
    double mean = 0.0;
    double maxAtS = 0.0;

    /** By its name in scenarios; nothing where there are no values, but for the count. */
    std::optional<double> called(const std::string& name) const;
};

/** Nearest rank: the smallest value that this part of the ordered values does not exceed. */
double percentile(const std::vector<double>& ordered, double part);

Statistics statisticsOf(const std::vector<Timed>& values);

/** Seconds from `endS` until the error stays at or below `belowNs` for `holdS`, looked for up to
 *  `toS`; nothing when it never does. */
std::optional<double> recoveryS(const std::vector<Sample>& samples, double endS, double toS,
                                double belowNs, double holdS);

}  // namespace simulate
