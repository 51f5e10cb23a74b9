#include "tools/simulate/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace simulate {

std::optional<double> Statistics::called(const std::string& name) const {
    if (name == "count") {
        return static_cast<double>(count);
    }
    if (count == 0) {
        return std::nullopt;
    }
    return name == "p50"   ? p50
           : name == "p99" ? p99
           : name == "max" ? max
           : name == "rms" ? rms
                           : mean;
}

double percentile(const std::vector<double>& ordered, double part) {
    if (ordered.empty()) {
        return 0.0;
    }
    // 0.99 x 100 may come out a little above 99.
    constexpr double kRounding = 1e-9;
    const auto rank =
        static_cast<std::size_t>(std::ceil(part * double(ordered.size()) - kRounding));
    return ordered[std::clamp<std::size_t>(rank, 1, ordered.size()) - 1];
}

Statistics statisticsOf(const std::vector<Timed>& values) {
    Statistics result;
    result.count = values.size();
    if (values.empty()) {
        return result;
    }
    std::vector<double> sizes;
    sizes.reserve(values.size());
    double sum = 0.0;
    double squares = 0.0;
    result.max = -1.0;
    for (const Timed& timed : values) {
        const double size = std::fabs(timed.value);
        sizes.push_back(size);
        sum += timed.value;
        squares += size * size;
        if (size > result.max) {
            result.max = size;
            result.maxAtS = timed.atS;
        }
    }
    std::sort(sizes.begin(), sizes.end());
    result.p50 = percentile(sizes, 0.50);
    result.p99 = percentile(sizes, 0.99);
    result.mean = sum / double(values.size());
    result.rms = std::sqrt(squares / double(values.size()));
    return result;
}

std::optional<double> recoveryS(const std::vector<Sample>& samples, double endS, double toS,
                                double belowNs, double holdS) {
    // Instants are decimal numbers of microseconds, which no double holds exactly.
    constexpr double kResolutionS = 5e-7;
    std::optional<double> sinceS;
    for (const Sample& sample : samples) {
        if (!sample.valid || sample.atS < endS || sample.atS > toS) {
            continue;
        }
        if (std::fabs(static_cast<double>(sample.errorNs)) > belowNs) {
            sinceS.reset();
            continue;
        }
        sinceS = sinceS.value_or(sample.atS);
        if (sample.atS - *sinceS >= holdS - kResolutionS) {
            return *sinceS - endS;
        }
    }
    return std::nullopt;
}

}  // namespace simulate
