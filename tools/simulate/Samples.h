#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace simulate {

/** One comparison of a node's time with the true time. */
struct Sample {
    double atS = 0.0; /**< from the beginning of the run */
    std::int64_t errorNs = 0;
    std::uint32_t bracketNs = 0; /**< width of the interval in which the time was asked */
    bool valid = false;

    /** What a daemon with robustTime tells. */
    struct Bounds {
        std::int64_t outsideNs = 0; /**< how far the true time lies outside of them */
        std::int64_t widthNs = 0;
    };
    std::optional<Bounds> bounds = std::nullopt;
};

/** The samples that one start of a tsyn wrote, whose times count from that start. A last line that
 *  is not whole, as a killed program leaves it, is left out. */
std::vector<Sample> readSamples(const std::string& file, double startS);

/** Throws std::runtime_error when the file cannot be written. */
void writeSamples(const std::string& file, const std::vector<Sample>& samples);

}  // namespace simulate
