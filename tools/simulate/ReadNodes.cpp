#include <algorithm>
#include <array>
#include <cstdio>
#include <set>

#include "tools/simulate/ReadParts.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

constexpr int kMostPhcIndex = 999;
// The daemon reads two digits of an index, so that further cards share one.
constexpr std::int64_t kPhcIndices = 100;

struct CardKey {
    const char* name;
    double least;
    double most;
    bool decimals;
};

constexpr double kMostPpb = 100'000'000;
constexpr double kMostNs = 1'000'000'000;
constexpr double kMostOffsetNs = 4e18;
constexpr std::array<CardKey, 8> kCardKeys{{{"rate_ppb", -kMostPpb, kMostPpb, true},
                                            {"offset_ns", -kMostOffsetNs, kMostOffsetNs, false},
                                            {"wander_ppb", 0, kMostPpb, true},
                                            {"granularity_ns", 1, kMostNs, false},
                                            {"cable_ns", 0, kMostNs, false},
                                            {"jitter_ns", 0, kMostNs, false},
                                            {"read_ns", 0, kMostNs, false},
                                            {"read_jitter_ns", 0, kMostNs, false}}};

std::string fixedText(double value, bool decimals) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), decimals ? "%.3f" : "%.0f", value);
    return text.data();
}

void readRole(Fields& fields, const Scenario& scenario, Node& node) {
    if (node.isTsyn()) {
        node.profile = readProfile(fields).value_or(scenario.profile);
        fields.require("role", "write role = \"master\" or \"slave\"");
        node.role = fields.choice("role", {"master", "slave"}).value_or("slave");
        node.i386 = fields.choice("abi", {"x86_64", "i386"}).value_or("x86_64") == "i386";
        return;
    }
    for (const char* key : {"role", "abi", "profile"}) {
        if (fields.has(key)) {
            fields.text(key);
            fields.wrong(key, "is only for the program tsyn; leave it out");
        }
    }
}

std::optional<std::uint64_t> readStart(Fields& fields, const Scenario& scenario) {
    if (!fields.has("start") || fields.peek("start") == "never") {
        const bool atOnce = !fields.peek("start");
        return atOnce ? std::optional<std::uint64_t>(0) : std::nullopt;
    }
    const auto start = fields.duration("start");
    if (start && *start >= scenario.durationNs) {
        fields.wrong("start", "is not before the end at " + secondsText(scenario.durationNs));
    }
    return start;
}

void readTruth(Fields& fields, Node& node) {
    node.truth = fields.text("truth").value_or("");
    if (const auto rate = fields.number("sample_rate", 0.1, 1000)) {
        node.sampleRateHz = *rate;
        if (node.truth.empty()) {
            fields.wrong("sample_rate", "there is no truth to sample against; write truth = CARD");
        }
    }
}

/** Everything that the nodes of a count have in common. */
Node readCommon(Fields& fields, const Scenario& scenario) {
    Node node;
    node.line = fields.line();
    node.program = fields.text("program").value_or("tsyn");
    if (node.program.empty()) {
        fields.wrong("program", "write tsyn, or the name or path of a program");
    }
    readRole(fields, scenario, node);
    node.options = fields.texts("options").value_or(std::vector<std::string>());
    node.environment = fields.settings("environment");
    node.config = fields.text("config");
    node.startNs = readStart(fields, scenario);
    node.mayEnd = fields.flag("may_end").value_or(false);
    readTruth(fields, node);
    node.cardName = fields.text("card_of").value_or("");
    return node;
}

void readCard(Fields& fields, std::vector<Node>& nodes, std::size_t cardsBefore) {
    const auto phc = fields.integer("phc", 0, kMostPhcIndex);
    const bool borrowed = !nodes.front().ownsCard();
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const auto position = static_cast<std::int64_t>(i);
        nodes[i].phcIndex = static_cast<std::int32_t>(
            phc ? *phc + position
                : (static_cast<std::int64_t>(cardsBefore) + position) % kPhcIndices);
    }
    for (const CardKey& key : kCardKeys) {
        if (borrowed && fields.has(key.name)) {
            fields.wrong(key.name, "the node has no card of its own; give it to '" +
                                       nodes.front().cardName + "'");
        }
        const auto values =
            fields.spread(key.name, key.least, key.most, nodes.size(), key.decimals);
        for (std::size_t i = 0; i < values.size(); ++i) {
            nodes[i].card.emplace_back(key.name, fixedText(values[i], key.decimals));
            if (key.name == std::string("rate_ppb")) {
                nodes[i].ratePpb = values[i];
            }
        }
    }
}

std::vector<Node> expand(Fields& fields, const Node& common, const std::string& name) {
    const auto count = fields.integer("count", 1, kMostCards);
    const std::uint64_t stagger = fields.duration("stagger").value_or(0);
    std::vector<Node> nodes(static_cast<std::size_t>(count.value_or(1)), common);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        Node& node = nodes[i];
        node.name = count ? name + std::to_string(i + 1) : name;
        node.group = name;
        if (node.cardName.empty()) {
            node.cardName = node.name;
        }
        if (node.startNs) {
            *node.startNs += stagger * i;
        }
    }
    if (!isNodeName(nodes.back().name)) {
        fields.wrong("name", "'" + nodes.back().name +
                                 "' is no name; write a letter, then letters, digits or '_', up "
                                 "to 15 in all with the number of a count");
    }
    return nodes;
}

void readNode(const toml::table& table, Fields& top, Scenario& scenario) {
    Fields fields(table, "[[node]]", top.problems());
    fields.require("name", "write name = \"master\" or the like");
    const std::string name = fields.text("name").value_or("unnamed");
    std::vector<Node> nodes = expand(fields, readCommon(fields, scenario), name);
    const auto cards = std::count_if(scenario.nodes.begin(), scenario.nodes.end(),
                                     [](const Node& node) { return node.ownsCard(); });
    readCard(fields, nodes, static_cast<std::size_t>(cards));
    fields.finish();
    if (nodes.back().startNs.value_or(0) >= scenario.durationNs && fields.has("stagger")) {
        fields.wrong("stagger", "the last node would start at the end or later");
    }
    for (Node& node : nodes) {
        const Node* other = scenario.find(node.name);
        if (other != nullptr) {
            fields.wrong("name", "'" + node.name + "' is taken by the node of line " +
                                     std::to_string(other->line) + "; give each its own name");
            return;
        }
        scenario.nodes.push_back(std::move(node));
    }
}

/** Names as advice; of many, the first. */
std::string cardNames(const Scenario& scenario) {
    constexpr std::size_t kMostListed = 8;
    std::vector<std::string> names;
    for (const Node& node : scenario.nodes) {
        if (node.ownsCard()) {
            names.push_back(node.name);
        }
    }
    if (names.size() > kMostListed) {
        names.resize(kMostListed);
        names.emplace_back("another");
    }
    return listed(names);
}

/** What names a node of another table can only be checked when all are there. */
void checkReferences(const toml::table& table, Fields& top, const Scenario& scenario) {
    Fields fields(table, "[[node]]", top.problems());
    for (const char* key : {"truth", "card_of"}) {
        const auto name = fields.peek(key);
        const Node* card = name ? scenario.find(*name) : nullptr;
        if (name && (card == nullptr || !card->ownsCard())) {
            fields.wrong(key,
                         "'" + *name + "' is no node with a card; write " + cardNames(scenario));
        }
    }
}

void checkCards(Fields& top, const Scenario& scenario) {
    std::size_t cards = 0;
    std::set<std::int32_t> taken;
    for (const Node& node : scenario.nodes) {
        if (!node.ownsCard()) {
            continue;
        }
        if (!taken.insert(node.phcIndex).second && cards < kPhcIndices) {
            top.problems().add(node.line, "[[node]] phc: " + std::to_string(node.phcIndex) +
                                              " of '" + node.name +
                                              "' is taken by another; give each its own index");
        }
        if (++cards == kMostCards + 1) {
            top.problems().add(node.line, "[[node]]: too many cards; at most " +
                                              std::to_string(kMostCards) + " are allowed");
        }
    }
}

}  // namespace

std::optional<std::string> readProfile(Fields& fields) {
    return fields.choice("profile", {"deployed", "standard"});
}

bool isNodeName(const std::string& name) {
    constexpr std::size_t kLongestName = 15;
    return !name.empty() && name.size() <= kLongestName &&
           std::isalpha(static_cast<unsigned char>(name[0])) != 0 &&
           std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
}

std::vector<std::string> nodesCalled(const Scenario& scenario, const std::string& name) {
    std::vector<std::string> names;
    for (const Node& node : scenario.nodes) {
        if (name == "*" || node.name == name || node.group == name) {
            names.push_back(node.name);
        }
    }
    return names;
}

std::vector<std::string> readNodeNames(Fields& fields, const std::string& key,
                                       const Scenario& scenario) {
    std::vector<std::string> result;
    for (const std::string& name : fields.texts(key).value_or(std::vector<std::string>())) {
        const auto found = nodesCalled(scenario, name);
        if (found.empty()) {
            std::vector<std::string> groups;
            for (const Node& node : scenario.nodes) {
                if (groups.empty() || groups.back() != node.group) {
                    groups.push_back(node.group);
                }
            }
            fields.wrong(key, "'" + name + "' is no node; write " + listed(groups));
            return {};
        }
        result.insert(result.end(), found.begin(), found.end());
    }
    return result;
}

void readNodes(Fields& top, Scenario& scenario) {
    const auto tables = top.tables("node");
    if (tables.empty()) {
        top.require("node", "write a [[node]] for each program of the run");
    }
    for (const toml::table* table : tables) {
        readNode(*table, top, scenario);
    }
    for (const toml::table* table : tables) {
        checkReferences(*table, top, scenario);
    }
    for (Node& node : scenario.nodes) {
        const Node* owner = scenario.find(node.cardName);
        node.phcIndex = owner == nullptr ? node.phcIndex : owner->phcIndex;
    }
    checkCards(top, scenario);
}

}  // namespace simulate
