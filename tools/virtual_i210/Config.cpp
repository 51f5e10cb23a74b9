#include "tools/virtual_i210/Config.h"

#include <net/if.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

namespace virtual_i210 {

namespace {

constexpr std::int64_t kMaxRatePpt = 100'000'000'000;
constexpr std::int64_t kMaxOffsetNs = 4'000'000'000'000'000'000;
/** Into the year 2262, where the nanoseconds of a clock end. */
constexpr std::int64_t kMaxEpochNs = 9'200'000'000'000'000'000;
constexpr std::int32_t kMaxPhcIndex = 999;
constexpr std::int64_t kMaxNs = 1'000'000'000;

/** One ';'- or line-separated entry of the text, with what an error message needs to point at
 *  it. */
struct Segment {
    std::string source;
    unsigned number = 0;
    std::vector<std::string> words;
};

[[noreturn]] void fail(const Segment& segment, const std::string& word, const std::string& advice) {
    throw ConfigError(segment.source + ": entry " + std::to_string(segment.number) + ": '" + word +
                      "': " + advice);
}

std::optional<std::int64_t> parseInteger(const std::string& text) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])) != 0) {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0') {
        return std::nullopt;
    }
    return value;
}

std::int64_t integerIn(const Segment& segment, const std::string& word, const std::string& value,
                       std::int64_t least, std::int64_t most) {
    const auto number = parseInteger(value);
    if (!number || *number < least || *number > most) {
        fail(segment, word,
             "write a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return *number;
}

std::int64_t pptIn(const Segment& segment, const std::string& word, const std::string& value,
                   std::int64_t least) {
    const auto ppt = parsePpb(value);
    if (!ppt || *ppt < least || *ppt > kMaxRatePpt) {
        fail(segment, word,
             "write a number from " + std::to_string(least / 1000) + " to " +
                 std::to_string(kMaxRatePpt / 1000) + " with up to three decimals");
    }
    return *ppt;
}

std::pair<std::string, std::string> splitAssignment(const Segment& segment,
                                                    const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == word.size()) {
        fail(segment, word, "write name=value");
    }
    return {word.substr(0, equals), word.substr(equals + 1)};
}

bool readCost(const Segment& segment, const std::string& word, SimulatedCosts& costs) {
    struct Cost {
        const char* name;
        std::uint32_t& value;
        std::int64_t most;
    };
    const auto [name, value] = splitAssignment(segment, word);
    for (const Cost& cost :
         {Cost{"load", costs.loadPercent, 100}, Cost{"cost_clock_ns", costs.clockNs, kMaxNs},
          Cost{"cost_call_ns", costs.callNs, kMaxNs}, Cost{"cost_wake_ns", costs.wakeNs, kMaxNs},
          Cost{"cost_notify_ns", costs.notifyNs, kMaxNs},
          Cost{"cost_wake_jitter_ns", costs.wakeJitterNs, kMaxNs}}) {
        if (name == cost.name) {
            cost.value = static_cast<std::uint32_t>(integerIn(segment, word, value, 0, cost.most));
            return true;
        }
    }
    return false;
}

void readGlobal(const Segment& segment, const std::string& word, Config& config) {
    const auto [name, value] = splitAssignment(segment, word);
    if (name == "state") {
        if (value[0] != '/') {
            fail(segment, word, "write a path that begins with '/', such as /dev/shm/cards");
        }
        config.statePath = value;
    } else if (name == "seed") {
        const auto most = std::numeric_limits<std::int64_t>::max();
        config.seed = static_cast<std::uint64_t>(integerIn(segment, word, value, 0, most));
    } else if (name == "epoch_ns") {
        config.epochNs =
            static_cast<std::uint64_t>(integerIn(segment, word, value, 0, kMaxEpochNs));
    } else if (name == "clock") {
        if (value != "real" && value != "simulated") {
            fail(segment, word, "write clock=real or clock=simulated");
        }
        config.simulated = value == "simulated";
    } else if (name == "capture") {
        if (value[0] != '/') {
            fail(segment, word, "write a path that begins with '/', such as /tmp/run.pcapng");
        }
        if (value.size() >= kMaxCapturePath) {
            fail(segment, word,
                 "a path has at most " + std::to_string(kMaxCapturePath - 1) + " characters");
        }
        config.capturePath = value;
    } else if (!readCost(segment, word, config.costs)) {
        fail(segment, word,
             "unknown setting; known are state, seed, epoch_ns, clock, capture, load, "
             "cost_clock_ns, cost_call_ns, cost_wake_ns, cost_notify_ns, cost_wake_jitter_ns");
    }
}

void readCardSetting(const Segment& segment, const std::string& word, CardConfig& card) {
    const auto [name, text] = splitAssignment(segment, word);
    const std::string& value = text;
    const auto nanoseconds = [&](std::int64_t least) {
        return static_cast<std::uint32_t>(integerIn(segment, word, value, least, kMaxNs));
    };
    if (name == "phc") {
        card.phcIndex = static_cast<std::int32_t>(integerIn(segment, word, value, 0, kMaxPhcIndex));
    } else if (name == "rate_ppb") {
        card.ratePpt = pptIn(segment, word, value, -kMaxRatePpt);
    } else if (name == "wander_ppb") {
        card.wanderPpt = pptIn(segment, word, value, 0);
    } else if (name == "offset_ns") {
        card.offsetNs = integerIn(segment, word, value, -kMaxOffsetNs, kMaxOffsetNs);
    } else if (name == "granularity_ns") {
        card.granularityNs = nanoseconds(1);
    } else if (name == "cable_ns") {
        card.cableNs = nanoseconds(0);
    } else if (name == "jitter_ns") {
        card.jitterNs = nanoseconds(0);
    } else if (name == "read_ns") {
        card.readNs = nanoseconds(0);
    } else if (name == "read_jitter_ns") {
        card.readJitterNs = nanoseconds(0);
    } else if (name == "net") {
        card.net = value;
    } else {
        fail(segment, word,
             "unknown setting; known are phc, rate_ppb, wander_ppb, offset_ns, granularity_ns, "
             "cable_ns, jitter_ns, read_ns, read_jitter_ns, net");
    }
}

void readCard(const Segment& segment, Config& config) {
    CardConfig card;
    card.ifName = segment.words.front();
    card.phcIndex = static_cast<std::int32_t>(config.cards.size());
    if (card.ifName.size() >= IFNAMSIZ) {
        fail(segment, card.ifName, "an interface name has at most 15 characters");
    }
    for (std::size_t i = 1; i < segment.words.size(); ++i) {
        readCardSetting(segment, segment.words[i], card);
    }
    for (const CardConfig& other : config.cards) {
        if (other.ifName == card.ifName) {
            fail(segment, card.ifName, "named twice; name each interface once");
        }
        // In a simulated run each program is a machine of its own, and those count from 0.
        if (!config.simulated && other.phcIndex == card.phcIndex) {
            fail(segment, "phc=" + std::to_string(card.phcIndex),
                 "taken by " + other.ifName + "; give each card its own index");
        }
    }
    if (config.cards.size() == kMaxCards) {
        fail(segment, card.ifName, "at most " + std::to_string(kMaxCards) + " cards");
    }
    config.cards.push_back(card);
}

void readSegment(const Segment& segment, Config& config) {
    if (segment.words.empty()) {
        return;
    }
    if (segment.words.front().find('=') == std::string::npos) {
        readCard(segment, config);
        return;
    }
    for (const std::string& word : segment.words) {
        readGlobal(segment, word, config);
    }
}

/** The settings of a comment line are no settings, even when it holds a ';'. */
std::string withoutComments(const std::string& text) {
    std::string result;
    bool inComment = false;
    for (const char c : text) {
        inComment = c != '\n' && (inComment || c == '#');
        if (!inComment) {
            result += c == '\n' ? ';' : c;
        }
    }
    return result;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) {
        throw ConfigError(std::string(kConfigVariable) + ": cannot read '" + path +
                          "'; name a readable, non-empty file or write the settings themselves");
    }
    return text.str();
}

}  // namespace

std::optional<std::int64_t> parsePpb(const std::string& text) {
    const std::size_t point = text.find('.');
    const std::string whole = text.substr(0, point);
    std::string decimals = point == std::string::npos ? "" : text.substr(point + 1);
    if (decimals.size() > 3 || (point != std::string::npos && decimals.empty()) ||
        decimals.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    decimals.resize(3, '0');
    const auto integral = parseInteger(whole);
    if (!integral || *integral > kMaxRatePpt || *integral < -kMaxRatePpt) {
        return std::nullopt;
    }
    const std::int64_t fraction = std::strtoll(decimals.c_str(), nullptr, 10);
    return *integral * 1000 + (whole[0] == '-' ? -fraction : fraction);
}

Config parseConfig(const std::string& value) {
    Config config;
    const bool isPath = !value.empty() && (value[0] == '/' || value[0] == '.');
    config.text = isPath ? readFile(value) : value;
    const std::string source =
        isPath ? std::string(kConfigVariable) + " (" + value + ")" : kConfigVariable;
    std::istringstream parts(withoutComments(config.text));
    std::string part;
    for (unsigned number = 1; std::getline(parts, part, ';'); ++number) {
        Segment segment{source, number, {}};
        std::istringstream words(part);
        for (std::string word; words >> word;) {
            segment.words.push_back(word);
        }
        readSegment(segment, config);
    }
    if (config.cards.empty()) {
        throw ConfigError(source + ": no card; name an interface, such as 'tsm0 phc=0'");
    }
    if (!config.capturePath.empty() && !config.simulated) {
        throw ConfigError(source + ": capture=" + config.capturePath +
                          ": only for clock=simulated; in real time, use a capture program");
    }
    return config;
}

}  // namespace virtual_i210
