#include "tools/simulate/Nodes.h"

#include <fcntl.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tools/simulate/Paths.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

constexpr int kCannotRun = 127;

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

/** Appended to, so that a later start does not end what an earlier one wrote. */
void redirect(int descriptor, const std::string& file) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0 || dup2(fd, descriptor) < 0) {
        _exit(kCannotRun);
    }
}

bool endsPrograms(int number) {
    return number != SIGSTOP && number != SIGCONT;
}

std::string endText(int status) {
    if (WIFSIGNALED(status)) {
        return "by signal " + std::to_string(WTERMSIG(status));
    }
    return "with status " + std::to_string(WEXITSTATUS(status));
}

std::uintmax_t sizeOf(const std::string& file) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

/** ": TEXT" with the first line from there on, cut where it is very long; empty without any. */
std::string saidFirst(const std::string& log, std::uintmax_t begin) {
    constexpr std::size_t kMost = 200;
    std::ifstream stream(log);
    stream.seekg(static_cast<std::streamoff>(begin));
    std::string line;
    while (line.empty() && std::getline(stream, line)) {
    }
    if (line.size() > kMost) {
        line = line.substr(0, kMost) + "...";
    }
    // A report is JSON, which takes no bytes that are no text.
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return std::isprint(c) == 0; }, '?');
    return line.empty() ? "" : ": " + line;
}

bool endedWell(int status) {
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

Nodes::Nodes(const Scenario& scenario, virtual_i210::Simulation& simulation, std::string cards,
             std::string buildFolder)
    : simulation_(simulation), cards_(std::move(cards)), buildFolder_(std::move(buildFolder)) {
    for (const Node& node : scenario.nodes) {
        State state;
        state.node = &node;
        state.program = findProgram(node, buildFolder_);
        positions_[node.name] = states_.size();
        states_.push_back(state);
        if (node.config) {
            std::ofstream(filesOf(node, 1).config) << filledIn(*node.config, node, buildFolder_);
        }
    }
}

Nodes::~Nodes() {
    for (const State& state : states_) {
        if (state.pid != 0) {
            kill(state.pid, SIGKILL);
        }
    }
}

/** In the child: becomes the program. */
void Nodes::exec(const State& state, unsigned start) const {
    const NodeFiles files = filesOf(*state.node, start);
    std::vector<std::string> words = commandOf(*state.node, state.program, files, buildFolder_);
    std::vector<std::string> variables =
        environmentOf(*state.node, state.program, cards_, buildFolder_);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The same addresses in every run, in case a program's order depends on them.
    personality(ADDR_NO_RANDOMIZE);
    redirect(STDERR_FILENO, files.log);
    redirect(STDOUT_FILENO, state.node->isTsyn() ? files.lines : files.log);
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (input >= 0) {
        dup2(input, STDIN_FILENO);
    }
    execve(words[0].c_str(), pointers(words).data(), pointers(variables).data());
    _exit(kCannotRun);
}

void Nodes::start(const std::string& name) {
    State& state = states_[positions_.at(name)];
    if (state.pid != 0) {
        return;
    }
    state.startsNs.push_back(simulation_.nowNs());
    state.logBegin = sizeOf(filesOf(*state.node, 1).log);
    const auto number = static_cast<unsigned>(state.startsNs.size());
    state.endExpected = false;
    state.restarts = false;
    state.stopped = false;
    state.pid = simulation_.start([this, &state, number] { exec(state, number); });
}

void Nodes::signal(const std::string& name, int number) {
    State& state = states_[positions_.at(name)];
    if (state.pid == 0) {
        return;
    }
    state.endExpected = state.endExpected || endsPrograms(number);
    state.stopped = number == SIGSTOP || (state.stopped && endsPrograms(number));
    simulation_.signal(state.pid, number);
}

void Nodes::restart(const std::string& name) {
    State& state = states_[positions_.at(name)];
    if (state.pid == 0) {
        start(name);
        return;
    }
    signal(name, SIGTERM);
    state.restarts = true;
}

void Nodes::ended(State& state, int status) {
    state.pid = 0;
    // A program that is ended by a signal on purpose may say so in its status.
    if (!state.endExpected && !(state.node->mayEnd && endedWell(status))) {
        const std::string said =
            WIFEXITED(status) ? saidFirst(filesOf(*state.node, 1).log, state.logBegin) : "";
        failures_.push_back("node " + state.node->name + " ended " + endText(status) + " at " +
                            secondsText(simulation_.nowNs()) + said + "; see " + state.node->name +
                            ".log");
    }
}

void Nodes::look() {
    for (State& state : states_) {
        if (state.pid == 0) {
            continue;
        }
        if (const auto status = simulation_.ended(state.pid)) {
            ended(state, *status);
            if (state.restarts) {
                start(state.node->name);
            }
        }
    }
}

bool Nodes::runs(const std::string& name) const {
    return states_[positions_.at(name)].pid != 0;
}

bool Nodes::anyRuns() const {
    return std::any_of(states_.begin(), states_.end(),
                       [](const State& state) { return state.pid != 0; });
}

bool Nodes::anyRestarts() const {
    return std::any_of(states_.begin(), states_.end(),
                       [](const State& state) { return state.pid != 0 && state.restarts; });
}

void Nodes::endAll() {
    for (auto state = states_.rbegin(); state != states_.rend(); ++state) {
        state->restarts = false;
        if (state->stopped) {
            signal(state->node->name, SIGCONT);
        }
        signal(state->node->name, SIGTERM);
    }
}

void Nodes::collect(std::map<std::string, NodeResult>& results) const {
    for (const State& state : states_) {
        const Node& node = *state.node;
        NodeResult& result = results[node.name];
        result.name = node.name;
        result.log = filesOf(node, 1).log;
        for (std::size_t i = 0; i < state.startsNs.size(); ++i) {
            const double startS = secondsOf(state.startsNs[i]);
            const NodeFiles files = filesOf(node, static_cast<unsigned>(i + 1));
            result.startsS.push_back(startS);
            if (!node.isTsyn()) {
                continue;
            }
            const auto samples = readSamples(files.samples, startS);
            result.samples.insert(result.samples.end(), samples.begin(), samples.end());
            const auto lines = readStatusLines(files.lines, startS);
            result.lines.insert(result.lines.end(), lines.begin(), lines.end());
            unlink(files.samples.c_str());
            unlink(files.lines.c_str());
        }
        const std::string base = std::string(kResultsFolder) + "/" + node.name;
        if (node.isTsyn()) {
            writeStatusLines(base + ".json", result.lines);
        }
        if (!node.truth.empty()) {
            writeSamples(base + ".csv", result.samples);
        }
    }
}

}  // namespace simulate
