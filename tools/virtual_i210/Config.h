#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/virtual_i210/simulated/Machine.h"

namespace virtual_i210 {

constexpr const char* kConfigVariable = "VIRTUAL_I210";
constexpr std::size_t kMaxCapturePath = 256;

/** One line that says what is wrong, where, and what to write instead. */
class ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CardConfig {
    std::string ifName;
    std::int32_t phcIndex = 0;
    std::int64_t ratePpt = 0; /**< parts in 10^12 */
    std::int64_t offsetNs = 0;
    std::uint32_t granularityNs = 8;
    std::uint32_t cableNs = 0;
    std::uint32_t jitterNs = 0;
    std::int64_t wanderPpt = 0;
    std::uint32_t readNs = 100;
    std::uint32_t readJitterNs = 200;
    std::string net; /**< cards of one name hear each other */
};

struct Config {
    std::string text;
    std::string statePath = "/dev/shm/virtual_i210";
    std::uint64_t seed = 1;
    std::optional<std::uint64_t> epochNs;
    bool simulated = false;
    SimulatedCosts costs;
    std::string capturePath; /**< empty: frames are not captured */
    std::vector<CardConfig> cards;
};

/** Reads the inline text, or the file named by a value that begins with '/' or '.'. */
Config parseConfig(const std::string& value);

/** Reads a number with up to three decimals of parts in 10^9 as parts in 10^12. */
std::optional<std::int64_t> parsePpb(const std::string& text);

}  // namespace virtual_i210
