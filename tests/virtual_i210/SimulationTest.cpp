#include "tools/virtual_i210/Simulation.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/Sandbox.h"
#include "tools/virtual_i210/Config.h"

namespace {

using testing::HasSubstr;
using virtual_i210::Simulation;

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kEpochNs = 1'767'225'600 * kSecond;

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/** A run in a process of its own, since a process has one run; its files are in a folder. */
class RunFolder {
public:
    explicit RunFolder(const std::string& name) : folder_("/dev/shm/" + name) {
        Sandbox::run({"mkdir", folder_});
    }
    std::string path(const std::string& file) const { return folder_ + "/" + file; }
    std::string settings(const std::string& more) const {
        return "clock=simulated state=" + path("state") + " capture=" + path("capture") + " " +
               more + "; tsm0; tss0 cable_ns=500";
    }
    /** What starts a program of the run. */
    std::function<void()> program(const std::string& executable, const std::string& more,
                                  const char* order, const char* argument = nullptr) const {
        const std::string output = path(argument == nullptr ? order : argument);
        return [=] {
            setenv("VIRTUAL_I210", settings(more).c_str(), 1);
            dup2(open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644), STDOUT_FILENO);
            execl(executable.c_str(), executable.c_str(), order, argument, nullptr);
        };
    }

private:
    std::string folder_;
};

/** Two programs talk for three seconds, then are told to end. */
void talk(const RunFolder& folder, const std::string& settings, const std::string& first,
          const std::string& second) {
    const pid_t director = fork();
    if (director == 0) {
        Simulation simulation(folder.settings(settings));
        const pid_t master = simulation.start(folder.program(first, settings, "talk", "tsm0"));
        const pid_t slave = simulation.start(folder.program(second, settings, "talk", "tss0"));
        simulation.sleepUntil(3 * kSecond);
        const bool early = simulation.ended(master) || simulation.ended(slave);
        simulation.signal(master, SIGTERM);
        simulation.signal(slave, SIGTERM);
        simulation.sleepUntil(4 * kSecond);
        const auto masterStatus = simulation.ended(master);
        const auto slaveStatus = simulation.ended(slave);
        const bool ended = masterStatus && WEXITSTATUS(*masterStatus) == 5 && slaveStatus &&
                           WEXITSTATUS(*slaveStatus) == 5 && !simulation.ended(slave);
        _exit(!early && ended && simulation.nowNs() == 4 * kSecond ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(director, waitpid(director, &status, 0));
    ASSERT_EQ(0, status);
}

class SimulationTest : public testing::Test {
protected:
    SimulationTest() { sandbox_.addVethPair("tsm0", "tss0"); }

    Sandbox sandbox_;
};

TEST_F(SimulationTest, IsTheSameFromTheSameSeed) {
    const RunFolder first("first");
    const RunFolder second("second");
    const RunFolder other("other");
    talk(first, "seed=1", SIMULATED_PROGRAM, SIMULATED_PROGRAM);
    talk(second, "seed=1", SIMULATED_PROGRAM, SIMULATED_PROGRAM);
    talk(other, "seed=2", SIMULATED_PROGRAM, SIMULATED_PROGRAM);
    for (const char* file : {"tsm0", "tss0", "capture"}) {
        const std::string content = contentOf(first.path(file));
        EXPECT_GT(content.size(), 1000u);
        EXPECT_EQ(content, contentOf(second.path(file))) << file;
        EXPECT_NE(content, contentOf(other.path(file))) << file;
    }
    EXPECT_THAT(contentOf(first.path("tsm0")), HasSubstr(" ends 0\n"));
}

constexpr const char* kFreeOfCost =
    "cost_clock_ns=0 cost_call_ns=0 cost_wake_ns=0 cost_notify_ns=0 cost_wake_jitter_ns=0";

TEST_F(SimulationTest, TakesTheTimesThatAreConfigured) {
    const RunFolder folder("exact");
    talk(folder, kFreeOfCost, SIMULATED_PROGRAM, SIMULATED_PROGRAM);
    std::istringstream lines(contentOf(folder.path("tss0")));
    std::uint64_t ns = 0;
    std::string what;
    unsigned number = 0;
    std::uint64_t expectedNs = kEpochNs;
    while (lines >> ns >> what >> number && what != "ends") {
        expectedNs += what == "sends" ? 125'000'000 : 0;
        EXPECT_EQ(expectedNs + (what == "has" ? 500 : 0), ns) << what << number;
    }
    EXPECT_EQ(kEpochNs + 3 * kSecond, ns) << "the signal came";
}

/** A frame of a capture file. */
struct Captured {
    std::uint32_t interface = 0;
    std::uint64_t ns = 0;
    std::string bytes;
};

template <typename Value>
Value at(const std::string& content, std::size_t position) {
    Value value{};
    std::memcpy(&value, content.substr(position, sizeof value).data(), sizeof value);
    return value;
}

std::vector<Captured> framesOf(const std::string& content) {
    std::vector<Captured> frames;
    for (std::size_t i = 0; i + 12 <= content.size(); i += at<std::uint32_t>(content, i + 4)) {
        if (at<std::uint32_t>(content, i) == 6) {
            frames.push_back({at<std::uint32_t>(content, i + 8),
                              std::uint64_t{at<std::uint32_t>(content, i + 12)} << 32 |
                                  at<std::uint32_t>(content, i + 16),
                              content.substr(i + 28, at<std::uint32_t>(content, i + 20))});
        }
    }
    return frames;
}

TEST_F(SimulationTest, CapturesFramesAtTheInstantsOfTheirSending) {
    const RunFolder folder("capture");
    talk(folder, kFreeOfCost, SIMULATED_PROGRAM, SIMULATED_PROGRAM);
    const std::vector<Captured> frames = framesOf(contentOf(folder.path("capture")));
    ASSERT_GE(frames.size(), 46u);
    for (std::size_t i = 0; i < 46; ++i) {
        EXPECT_EQ(kEpochNs + (i / 2 + 1) * 125'000'000, frames[i].ns);
        EXPECT_EQ(58u, frames[i].bytes.size());
        EXPECT_EQ(static_cast<char>(i / 2), frames[i].bytes.at(45));
    }
    EXPECT_EQ(1u, frames[0].interface + frames[1].interface) << "one from each card";
}

TEST_F(SimulationTest, RunsProgramsOfBothAbis) {
    std::istringstream paths(SIMULATED_PROGRAMS);
    int run = 0;
    for (std::string path; std::getline(paths, path, ':');) {
        const std::string name = "abi" + std::to_string(run);
        if (access(path.c_str(), X_OK) == 0 &&
            !std::filesystem::equivalent(path, SIMULATED_PROGRAM)) {
            const RunFolder folder(name);
            talk(folder, kFreeOfCost, SIMULATED_PROGRAM, path);
            EXPECT_THAT(contentOf(folder.path("tss0")), HasSubstr(" has 22\n"));
            EXPECT_THAT(contentOf(folder.path("tsm0")), HasSubstr(" has 22\n"));
            ++run;
        }
    }
    if (run == 0) {
        GTEST_SKIP() << "no build of the program for another ABI beside this one";
    }
}

TEST_F(SimulationTest, GoesOnWhenAProgramEndsOnItsOwn) {
    const RunFolder folder("ends");
    Simulation simulation(folder.settings(""));
    const pid_t crashing = simulation.start(folder.program(SIMULATED_PROGRAM, "", "crash"));
    const pid_t ending = simulation.start(folder.program(SIMULATED_PROGRAM, "", "end-first"));
    const pid_t missing = simulation.start(folder.program("/no/such/program", "", "x"));
    const pid_t killed = simulation.start(folder.program(SIMULATED_PROGRAM, "", "talk", "tsm0"));
    simulation.sleepUntil(kSecond / 2);
    EXPECT_FALSE(simulation.ended(crashing));
    EXPECT_FALSE(simulation.ended(ending));
    simulation.signal(killed, SIGKILL);
    const auto killedStatus = simulation.ended(killed);
    ASSERT_TRUE(killedStatus);
    EXPECT_EQ(SIGKILL, WTERMSIG(*killedStatus));
    simulation.sleepUntil(60 * kSecond);
    EXPECT_EQ(60 * kSecond, simulation.nowNs());
    const auto crashedStatus = simulation.ended(crashing);
    ASSERT_TRUE(crashedStatus);
    EXPECT_EQ(SIGSEGV, WTERMSIG(*crashedStatus));
    const auto endedStatus = simulation.ended(ending);
    ASSERT_TRUE(endedStatus);
    EXPECT_EQ(5, WEXITSTATUS(*endedStatus));
    const auto missingStatus = simulation.ended(missing);
    ASSERT_TRUE(missingStatus);
    EXPECT_EQ(127, WEXITSTATUS(*missingStatus));
}

TEST_F(SimulationTest, NeedsSimulatedTime) {
    EXPECT_THROW(Simulation("state=/dev/shm/real; tsm0"), virtual_i210::ConfigError);
}

}  // namespace
