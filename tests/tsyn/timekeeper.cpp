#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/virtual_i210/Simulation.h"

/** Runs programs in simulated time for a test that is no program of the run. Each line of its input
 *  is an order, its words parted by tabs; each gets one line as answer. Time moves in `sleep`
 *  alone. */

namespace {

using virtual_i210::Simulation;
using Words = std::vector<std::string>;

void writeInto(int descriptor, const std::string& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0 || dup2(file, descriptor) < 0) {
        std::perror(path.c_str());
        _exit(126);
    }
}

/** start PRELOADED_LIBRARY OUTPUT_FILE ERROR_FILE PROGRAM ARGUMENT... */
pid_t start(Simulation& simulation, Words words) {
    return simulation.start([&] {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setenv("LD_PRELOAD", words.at(1).c_str(), 1);
        writeInto(STDOUT_FILENO, words.at(2));
        writeInto(STDERR_FILENO, words.at(3));
        std::vector<char*> arguments;
        for (std::size_t i = 4; i < words.size(); ++i) {
            arguments.push_back(words[i].data());
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
    });
}

std::string carryOut(Simulation& simulation, const Words& words) {
    const std::string& order = words.at(0);
    if (order == "start") {
        return std::to_string(start(simulation, words));
    }
    if (order == "sleep") {
        simulation.sleepUntil(simulation.nowNs() + std::stoull(words.at(1)));
        return std::to_string(simulation.nowNs());
    }
    if (order == "signal") {
        simulation.signal(std::stoi(words.at(1)), std::stoi(words.at(2)));
        return "done";
    }
    if (order == "ended") {
        const auto status = simulation.ended(std::stoi(words.at(1)));
        return status ? std::to_string(*status) : "no";
    }
    throw std::invalid_argument("timekeeper: no such order: " + order);
}

Words wordsOf(const std::string& line) {
    Words words;
    std::istringstream text(line);
    for (std::string word; std::getline(text, word, '\t');) {
        words.push_back(word);
    }
    return words;
}

}  // namespace

int main() {
    try {
        Simulation simulation(std::getenv("VIRTUAL_I210"));
        for (std::string line; std::getline(std::cin, line);) {
            std::cout << carryOut(simulation, wordsOf(line)) << std::endl;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "timekeeper: %s\n", error.what());
        return 1;
    }
    return 0;
}
