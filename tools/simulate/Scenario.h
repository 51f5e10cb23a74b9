#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/virtual_i210/Faults.h"

namespace simulate {

constexpr std::size_t kMostCards = 256;

/** Name and value, as texts. */
using Settings = std::vector<std::pair<std::string, std::string>>;

/** A program of the run and the card that it runs on. */
struct Node {
    unsigned line = 0;
    std::string name;  /**< also the interface and the card */
    std::string group; /**< the name in the file, which a count shares */
    std::string program = "tsyn";
    bool i386 = false;   /**< of tsyn */
    std::string role;    /**< of tsyn */
    std::string profile; /**< of tsyn */
    std::vector<std::string> options;
    Settings environment;
    std::optional<std::string> config;
    std::optional<std::uint64_t> startNs; /**< nothing: only an event starts it */
    bool mayEnd = false;
    std::string truth; /**< card; empty: no samples */
    double sampleRateHz = 100.0;
    std::string cardName; /**< its own name, or that of another node */
    std::int32_t phcIndex = 0;
    double ratePpb = 0.0;
    Settings card; /**< in the syntax of VIRTUAL_I210 */

    bool isTsyn() const { return program == "tsyn"; }
    bool ownsCard() const { return cardName == name; }
};

/** Cards that hear each other. */
struct Net {
    unsigned line = 0;
    std::string name;
    bool bridge = false; /**< otherwise a cable between two */
    std::vector<std::string> nodes;
};

enum class Action {
    kFault,
    kLink,
    kPhc,
    kRefuse,
    kStep,
    kRate,
    kClear,
    kInterface,
    kProcess,
    kSignal,
};

struct Event {
    unsigned line = 0;
    std::string name;
    std::uint64_t atNs = 0;
    std::uint64_t everyNs = 0;
    unsigned times = 1;
    std::optional<std::uint64_t> forNs;
    std::vector<std::string> nodes;
    Action action = Action::kClear;
    std::string value; /**< as the file has it: "down", "stamp-lost", "restart" */
    virtual_i210::FaultOrder fault;
    int errorNumber = 0;
    std::int64_t stepNs = 0;
    double ratePpb = 0.0;

    /** When its last repetition is over. */
    std::uint64_t endNs() const { return atNs + everyNs * (times - 1) + forNs.value_or(0); }
};

/** Either end may be open. */
struct Bound {
    std::optional<double> min;
    std::optional<double> max;

    bool holds(double value) const { return (!min || value >= *min) && (!max || value <= *max); }
};

/** Up to kWidth, statistics of many values. */
enum class Measure {
    kError,
    kOffset,
    kDelay,
    kRate,
    kOutside,
    kWidth,
    kRecovery,
    kCounter,
    kState,
    kLog
};

struct Limit {
    unsigned line = 0;
    std::vector<std::string> nodes;
    Measure measure = Measure::kError;
    std::uint64_t fromNs = 0;
    std::uint64_t toNs = 0;
    std::vector<std::pair<std::string, Bound>> bounds; /**< statistic and bound */
    double belowNs = 0.0;                              /**< of kRecovery */
    std::uint64_t holdNs = 0;                          /**< of kRecovery */
    std::string subject; /**< counter's name, state, or regular expression */
};

struct Scenario {
    std::string file;
    std::string name;
    std::uint64_t durationNs = 0;
    std::uint64_t seed = 1;
    std::uint64_t epochNs = 0;
    std::string profile; /**< of every tsyn that names none */
    Settings machine;    /**< in the syntax of VIRTUAL_I210 */
    std::vector<Node> nodes;
    std::vector<Net> nets;
    std::vector<Event> events;
    std::vector<Limit> limits;

    /** Nothing for a name that is no node's. */
    const Node* find(const std::string& name) const;
};

const char* measureName(Measure measure);

}  // namespace simulate
