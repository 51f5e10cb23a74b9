#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <set>

#include "tools/simulate/Commands.h"
#include "tools/simulate/Options.h"
#include "tools/simulate/Progress.h"
#include "tools/simulate/ReadScenario.h"
#include "tools/simulate/Workers.h"

/** Runs scenarios in simulated time. */

namespace {

constexpr int kBroken = 1;
constexpr int kUnreadable = 2;
constexpr int kInterrupted = 130;
constexpr const char* kDefaultOut = "build/simulate";

struct Options {
    std::vector<std::string> files;
    std::string seeds;
    unsigned jobs = static_cast<unsigned>(simulate::allowedCpus().size());
    std::string out = kDefaultOut;
    bool noPicture = false;
};

/** A pipe or socket of this program or of a child would get the number of a standard stream that
 *  was closed, and be taken for it. */
void fillStandardStreams() {
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

std::string buildFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

void checkPrograms(const simulate::Scenario& scenario) {
    for (const simulate::Node& node : scenario.nodes) {
        try {
            simulate::findProgram(node, buildFolder());
        } catch (const std::runtime_error& error) {
            throw simulate::ScenarioError(scenario.file + ":" + std::to_string(node.line) +
                                          ": [[node]] '" + node.name + "': " + error.what());
        }
    }
}

/** Every file's mistakes at once; false when there are any. */
bool readAll(const std::vector<std::string>& files, std::vector<simulate::Scenario>& scenarios) {
    bool good = true;
    std::set<std::string> names;
    for (const std::string& file : files) {
        try {
            scenarios.push_back(simulate::readScenario(file));
            checkPrograms(scenarios.back());
            if (!names.insert(scenarios.back().name).second) {
                throw simulate::ScenarioError(file + ":1: another file's scenario is called '" +
                                              scenarios.back().name + "'; name this another");
            }
        } catch (const simulate::ScenarioError& error) {
            std::fprintf(stderr, "%s\n", error.what());
            good = false;
        }
    }
    return good;
}

std::vector<simulate::Job> jobsOf(const std::vector<simulate::Scenario>& scenarios,
                                  const Options& options) {
    std::vector<simulate::Job> jobs;
    const std::filesystem::path out = std::filesystem::absolute(options.out);
    for (const simulate::Scenario& scenario : scenarios) {
        simulate::Seeds seeds{scenario.seed, scenario.seed};
        if (!options.seeds.empty()) {
            seeds = *simulate::parseSeeds(options.seeds);
        }
        for (std::uint64_t seed = seeds.first; seed <= seeds.last; ++seed) {
            const auto folder = out / scenario.name / ("seed-" + std::to_string(seed));
            jobs.push_back({&scenario, seed, folder.lexically_normal()});
        }
    }
    return jobs;
}

/** Whether the results can be written; tells of it when they cannot. */
bool makeOut(const std::string& out) {
    std::error_code error;
    std::filesystem::create_directories(out, error);
    const bool made = !error && std::filesystem::is_directory(out, error);
    if (made && access(out.c_str(), W_OK | X_OK) == 0) {
        return true;
    }
    const int number = error ? error.value() : made ? errno : ENOTDIR;
    std::fprintf(stderr, "--out: %s cannot be %s (%s); name a writable folder\n", out.c_str(),
                 made ? "written" : "created", std::strerror(number));
    return false;
}

/** What a run is repeated with, besides its seed. */
std::string againOptions(const Options& options) {
    std::string text;
    if (options.out != kDefaultOut) {
        text += " --out " + simulate::shellWord(options.out);
    }
    return text + (options.noPicture ? " --no-picture" : "");
}

/** Tells when it could not, since a verdict that nobody can read is none. */
bool printTable(const std::vector<simulate::Outcome>& outcomes) {
    std::printf("\n%s", simulate::tableOf(outcomes).c_str());
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    std::fprintf(stderr, "simulate: the table cannot be written (%s)\n", std::strerror(errno));
    return false;
}

int runAll(const Options& options, const std::string& program) {
    std::vector<simulate::Scenario> scenarios;
    if (!readAll(options.files, scenarios) || !makeOut(options.out)) {
        return kUnreadable;
    }
    const auto jobs = jobsOf(scenarios, options);
    simulate::Progress progress(jobs.size(), isatty(STDOUT_FILENO) != 0);
    const auto outcomes =
        simulate::runAll(jobs, {options.jobs, buildFolder(), !options.noPicture}, progress);
    int status = printTable(outcomes) ? 0 : kBroken;
    for (const simulate::Outcome& outcome : outcomes) {
        std::fputs(simulate::complaintsOf(outcome, program, againOptions(options)).c_str(), stderr);
        const std::string& verdict = outcome.summary.verdict;
        const bool stopped = verdict == "interrupted" || verdict == "not begun";
        status = stopped || status == kInterrupted ? kInterrupted
                 : verdict == "held"               ? status
                                                   : kBroken;
    }
    return status;
}

void addOptions(CLI::App& app, Options& options) {
    app.add_option("file", options.files, "scenarios, TOML")->required();
    app.add_option("--seeds", options.seeds, "A or A..B, in place of the scenario's seed")
        ->check(simulate::seedsMistake);
    app.add_option("--jobs", options.jobs, "runs at once (as many as there are CPUs)")
        ->check(CLI::Range(1, 1024));
    app.add_option("--out", options.out, "folder of the results")->capture_default_str();
    app.add_flag("--no-picture", options.noPicture, "do not draw");
}

}  // namespace

int main(int argc, char** argv) {
    fillStandardStreams();
    try {
        CLI::App app("Runs scenarios in simulated time; doc/simulation.md tells how to write one",
                     "simulate");
        Options options;
        addOptions(app, options);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? 0 : kUnreadable;
        }
        return runAll(options, argv[0]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "simulate: %s\n", error.what());
        return kBroken;
    }
}
