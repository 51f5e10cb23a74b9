#include "tools/simulate/ReadScenario.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tools/simulate/ReadParts.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

constexpr std::uint64_t kMostDurationNs = 400ULL * 86400 * kNsPerSecond;
constexpr std::uint64_t kFirstSecondOf2026 = 1767225600;

/** measured, for scenarios/measured.toml */
std::string stemOf(const std::string& file) {
    const std::size_t slash = file.find_last_of('/');
    const std::string base = slash == std::string::npos ? file : file.substr(slash + 1);
    return base.substr(0, base.find_last_of('.'));
}

bool isFolderName(const std::string& name) {
    constexpr const char* kAllowed =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    return !name.empty() && name.find_first_not_of(kAllowed) == std::string::npos;
}

void readMachine(Fields& top, Scenario& scenario) {
    const toml::table* table = top.table("machine");
    if (table == nullptr) {
        return;
    }
    Fields fields(*table, "[machine]", top.problems());
    if (const auto load = fields.integer("load", 0, 100)) {
        scenario.machine.emplace_back("load", std::to_string(*load));
    }
    constexpr std::int64_t kMostNs = 1'000'000'000;
    for (const char* key : {"cost_clock_ns", "cost_call_ns", "cost_wake_ns", "cost_wake_jitter_ns",
                            "cost_notify_ns"}) {
        if (const auto ns = fields.integer(key, 0, kMostNs)) {
            scenario.machine.emplace_back(key, std::to_string(*ns));
        }
    }
    fields.finish();
}

void readRun(Fields& top, Scenario& scenario) {
    scenario.name = top.text("name").value_or(stemOf(scenario.file));
    if (!isFolderName(scenario.name)) {
        top.wrong("name",
                  "'" + scenario.name + "' names no folder; write letters, digits, '_' and '-'");
    }
    if (top.require("duration", "write how long the run lasts, such as duration = \"62s\"")) {
        // Anything, so that a wrong one is told of once and not again with each event.
        scenario.durationNs = top.duration("duration").value_or(kMostDurationNs);
        if (scenario.durationNs == 0 || scenario.durationNs > kMostDurationNs) {
            top.wrong("duration", "write more than 0 and at most 400 d");
        }
    } else {
        scenario.durationNs = kMostDurationNs;
    }
    scenario.profile = readProfile(top).value_or("deployed");
    scenario.seed = static_cast<std::uint64_t>(top.integer("seed", 0, INT64_MAX).value_or(1));
    scenario.epochNs = top.instant("epoch").value_or(kFirstSecondOf2026 * kNsPerSecond);
}

[[noreturn]] void fail(const Problems& problems) {
    std::string text;
    for (const std::string& line : problems.lines()) {
        text += (text.empty() ? "" : "\n") + line;
    }
    throw ScenarioError(text);
}

toml::table parseToml(const std::string& text, const std::string& file) {
    try {
        return toml::parse(text, file);
    } catch (const toml::parse_error& error) {
        Problems problems(file);
        problems.add(error.source().begin.line,
                     std::string(error.description()) + "; a scenario is a TOML file");
        fail(problems);
    }
}

std::string textOf(const std::string& file) {
    std::ifstream stream(file);
    // Reading a folder fails only here; an empty file has no duration, which is told.
    if (!stream || (stream.peek(), stream.bad())) {
        throw ScenarioError(file + ":1: cannot be read (" + std::strerror(errno) +
                            "); name a scenario's TOML file");
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/** Adds what a scenario takes over from another: all but its name and limits, where it says nothing
 *  itself. */
void takeOver(const std::string& otherFile, toml::table& table) {
    const std::string text = textOf(otherFile);
    toml::table other = parseToml(text, otherFile);
    if (other.contains("like")) {
        throw ScenarioError(otherFile + ":1: like: is itself like another; name that one");
    }
    parseScenario(text, otherFile);  // its own mistakes are told under its own name
    for (auto&& [key, node] : other) {
        if (key.str() != "name" && key.str() != "limit" && !table.contains(key.str())) {
            // Moved, since a copy forgets its line.
            node.visit(
                [&table, &key = key](auto& value) { table.insert(key.str(), std::move(value)); });
        }
    }
}

/** The file that a scenario is like: beside itself unless it names a folder. */
std::string pathOfLike(const std::string& name, const std::string& file) {
    return file.substr(0, file.find_last_of('/') + 1) + name;
}

}  // namespace

Scenario parseScenario(const std::string& text, const std::string& file) {
    toml::table table = parseToml(text, file);
    Problems problems(file);
    Scenario scenario;
    if (const auto like = table["like"].value<std::string>()) {
        takeOver(pathOfLike(*like, file), table);
    }
    scenario.file = file;
    Fields top(table, "", problems);
    top.text("like");
    readRun(top, scenario);
    readMachine(top, scenario);
    readNodes(top, scenario);
    // What comes below names nodes: without all of them, each name would be called wrong.
    const bool nodesAreGood = problems.none();
    // Before the cables, since a misspelt [[bridge]] seems to leave its nodes without one.
    top.finish({"link", "bridge", "event", "limit"});
    if (nodesAreGood) {
        readNets(top, scenario);
        readEvents(top, scenario);
        readLimits(top, scenario);
    }
    if (!problems.none()) {
        fail(problems);
    }
    return scenario;
}

Scenario readScenario(const std::string& file) {
    return parseScenario(textOf(file), file);
}

}  // namespace simulate
