#include "tests/simulate/Runs.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

/** The program as a user runs it, with a master and a slave in simulated time. */

namespace {

/** 12 s of a pair that is disturbed, with this limit on the slave's error. */
std::string disturbedPair(int most, const std::string& abi = "x86_64") {
    return R"(duration = "12s"
[[node]]
name = "master"
role = "master"
abi = ")" + abi +
           R"("
cable_ns = 500
[[node]]
name = "slave"
role = "slave"
abi = ")" + abi +
           R"("
truth = "master"
rate_ppb = 37000
cable_ns = 500
[[link]]
between = ["master", "slave"]
[[event]]
at = "6s"
card = "master"
fault = "stamp-lost"
count = 8
[[event]]
at = "8s"
node = "slave"
process = "restart"
[[limit]]
node = "slave"
what = "error"
to = "6s"
p50 = )" + std::to_string(most) +
           "\n";
}

/** Name and contents of what a run wrote, but the picture. */
std::map<std::string, std::string> resultsIn(const fs::path& folder) {
    std::map<std::string, std::string> results;
    for (const auto& entry : fs::directory_iterator(folder)) {
        results[entry.path().filename()] = contents(entry.path());
    }
    results.erase("picture.png");
    return results;
}

/** Threads that do nothing but take the processors' time. */
class BusyMachine {
public:
    explicit BusyMachine(unsigned loops) {
        for (unsigned i = 0; i < loops; ++i) {
            loops_.emplace_back([this] {
                while (!over_.load(std::memory_order_relaxed)) {
                }
            });
        }
    }
    ~BusyMachine() {
        over_ = true;
        for (std::thread& loop : loops_) {
            loop.join();
        }
    }
    BusyMachine(const BusyMachine&) = delete;
    BusyMachine& operator=(const BusyMachine&) = delete;

private:
    std::atomic<bool> over_{false};
    std::vector<std::thread> loops_;
};

/** The 32-bit programs are of another build. */
bool narrowIsBuilt() {
    return fs::exists(fs::path(ZEB_SIMULATE).parent_path().parent_path() / "i386" / "tsyn");
}

TEST(ARun, GivesTheSameBytesWhenItIsRepeated) {
    const Folder folder;
    const fs::path file = folder.write("pair.toml", disturbedPair(1000));
    std::vector<std::map<std::string, std::string>> runs;
    for (const char* out : {"first", "second"}) {
        const BusyMachine load(runs.empty() ? 0 : 4);
        const Ran ran = simulateWith(
            folder, file.string() + " --no-picture --seeds 4 --out " + (folder / out).string());
        ASSERT_EQ(ran.status, 0) << ran.out << ran.errors;
        runs.push_back(resultsIn(folder / out / "pair" / "seed-4"));
    }
    for (const char* name : {"report.json", "slave.csv", "slave.json", "slave.log", "master.json",
                             "master.log", "capture.pcapng"}) {
        EXPECT_NE(runs[0][name], "") << name;
        EXPECT_TRUE(runs[0][name] == runs[1][name]) << name << " differs";
    }
    EXPECT_EQ(runs[0].size(), 7u);
}

TEST(ARun, OfEitherWordSizeGivesTheSameFramesAndTimes) {
    if (!narrowIsBuilt()) {
        GTEST_SKIP() << "the 32-bit programs are not built";
    }
    const Folder folder;
    std::vector<std::map<std::string, std::string>> runs;
    for (const char* abi : {"x86_64", "i386"}) {
        const fs::path file = folder.write("pair.toml", disturbedPair(1000, abi));
        const Ran ran =
            simulateWith(folder, file.string() + " --no-picture --out " + (folder / abi).string());
        ASSERT_EQ(ran.status, 0) << ran.out << ran.errors;
        runs.push_back(resultsIn(folder / abi / "pair" / "seed-1"));
    }
    for (const char* name : {"slave.csv", "capture.pcapng"}) {
        EXPECT_GT(runs[0][name].size(), 1000U) << name;
        EXPECT_TRUE(runs[0][name] == runs[1][name]) << name << " differs";
    }
}

TEST(ARun, DiffersWithItsSeed) {
    const Folder folder;
    const fs::path file = folder.write("pair.toml", disturbedPair(1000));
    const Ran ran = simulateWith(
        folder, file.string() + " --no-picture --seeds 1..2 --out " + (folder / "out").string());
    ASSERT_EQ(ran.status, 0) << ran.out << ran.errors;
    EXPECT_NE(contents(folder / "out" / "pair" / "seed-1" / "slave.csv"),
              contents(folder / "out" / "pair" / "seed-2" / "slave.csv"));
}

TEST(ARun, NeedsNoStandardInput) {
    const Folder folder;
    const fs::path file = folder.write("pair.toml", disturbedPair(1000));
    const Ran ran = simulateWith(
        folder, file.string() + " --no-picture --out " + (folder / "out").string() + " <&-");
    EXPECT_EQ(ran.status, 0) << ran.out << ran.errors;
}

TEST(ARun, WithABrokenLimitSaysHowToRepeatIt) {
    const Folder folder;
    const fs::path file = folder.write("pair.toml", disturbedPair(1));
    const std::string out = (folder / "out").string();
    const Ran ran =
        simulateWith(folder, file.string() + " --seeds 9 --out " + out + " --no-picture");
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.errors.find(file.string() + ":25: slave error p50: "), std::string::npos)
        << ran.errors;
    EXPECT_NE(ran.errors.find(" ns, at most 1 ns is allowed (seed 9)"), std::string::npos)
        << ran.errors;
    EXPECT_NE(ran.errors.find("again: " ZEB_SIMULATE " " + file.string() + " --seeds 9 --out " +
                              out + " --no-picture; results: "),
              std::string::npos)
        << ran.errors;
}

TEST(ARun, WhoseProgramEndsHasFailed) {
    const Folder folder;
    std::string text = disturbedPair(1000);
    text.insert(text.find("truth"), "options = [\"--no-such-option\"]\n");
    const fs::path file = folder.write("pair.toml", text);
    const Ran ran = simulateWith(folder, file.string() + " --out " + (folder / "out").string());
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.errors.find("node slave ended with status 2 at "), std::string::npos)
        << ran.errors;
    const std::string log = contents(folder / "out" / "pair" / "seed-1" / "slave.log");
    EXPECT_NE(log.find("--no-such-option"), std::string::npos);
    EXPECT_NE(ran.errors.find(" s: " + log.substr(0, log.find('\n')) + "; see slave.log"),
              std::string::npos)
        << ran.errors;
}

/** Reads until the last process that could write has ended. */
std::string readToTheEnd(int fd) {
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = read(fd, part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    return text;
}

/** The program with these arguments, interrupted as soon as a file is there, and what it printed.
 */
Ran interruptedAt(const fs::path& awaited, std::vector<std::string> arguments) {
    std::vector<char*> words(arguments.size() + 1, nullptr);
    std::transform(arguments.begin(), arguments.end(), words.begin(),
                   [](std::string& argument) { return argument.data(); });
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        execv(ZEB_SIMULATE, words.data());
        _exit(127);
    }
    close(ends[1]);
    while (!fs::exists(awaited) && waitpid(child, nullptr, WNOHANG) == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(kill(child, SIGINT), 0);
    Ran ran;
    ran.out = readToTheEnd(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    ran.status = WEXITSTATUS(status);
    close(ends[0]);
    return ran;
}

/** A pair that nobody would wait for. */
std::string writeLongPair(const Folder& folder) {
    std::string text = disturbedPair(1000);
    text.replace(text.find("12s"), 3, "10h");
    return folder.write("pair.toml", text).string();
}

TEST(ARun, ThatIsInterruptedEndsItsProcesses) {
    const Folder folder;
    const Ran ran =
        interruptedAt(folder / "out" / "pair" / "seed-1" / "slave.log",
                      {"simulate", writeLongPair(folder), "--out", (folder / "out").string()});
    EXPECT_EQ(ran.status, 130);
    EXPECT_NE(ran.out.find("interrupted"), std::string::npos) << ran.out;
}

TEST(ARun, ThatNeverBeganIsToldAsSuch) {
    const Folder folder;
    const Ran ran = interruptedAt(folder / "out" / "pair" / "seed-1" / "slave.log",
                                  {"simulate", writeLongPair(folder), "--seeds", "1..2", "--jobs",
                                   "1", "--out", (folder / "out").string()});
    EXPECT_EQ(ran.status, 130);
    EXPECT_NE(ran.out.find(" 1  interrupted "), std::string::npos) << ran.out;
    EXPECT_NE(ran.out.find(" 2  not begun "), std::string::npos) << ran.out;
}

TEST(ARun, ThatIsInterruptedEarlyLeavesNoEmptyFolder) {
    const Folder folder;
    const fs::path results = folder / "out" / "pair" / "seed-1";
    const Ran ran = interruptedAt(
        results, {"simulate", writeLongPair(folder), "--out", (folder / "out").string()});
    EXPECT_EQ(ran.status, 130);
    EXPECT_TRUE(!fs::exists(results) || !fs::is_empty(results));
}

TEST(AFile, ThatIsWrongIsToldBeforeAnythingRuns) {
    const Folder folder;
    const fs::path good = folder.write("good.toml", disturbedPair(1000));
    const fs::path wrong = folder.write("wrong.toml", "duration = 5\nnodes = 3\n");
    const Ran ran = simulateWith(
        folder, good.string() + " " + wrong.string() + " --out " + (folder / "out").string());
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.errors.rfind(wrong.string() + ":", 0), 0u) << ran.errors;
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(ResultsThatCannotBeWritten, AreToldBeforeAnythingRuns) {
    const Folder folder;
    const std::string file = folder.write("pair.toml", disturbedPair(1000)).string();
    for (const std::string& out : {file, file + "/out"}) {
        std::string options = file;
        options += " --seeds 1..3 --out ";
        options += out;
        const Ran ran = simulateWith(folder, options);
        EXPECT_EQ(ran.status, 2);
        EXPECT_EQ(ran.out, "");
        std::string told = "--out: ";
        told += out;
        told += " cannot be created (Not a directory); name a writable folder\n";
        EXPECT_EQ(ran.errors, told);
    }
}

TEST(ATable, ThatCannotBeWrittenIsNoSuccess) {
    const Folder folder;
    const std::string file = folder.write("pair.toml", disturbedPair(1000)).string();
    const Ran ran = simulateWith(
        folder, file + " --no-picture --out " + (folder / "out").string() + " >/dev/full");
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.errors, "simulate: the table cannot be written (No space left on device)\n");
}

TEST(TheScenarios, CanBeRead) {
    const Folder folder;
    std::string files;
    for (const auto& entry : fs::directory_iterator(ZEB_SCENARIOS)) {
        if (narrowIsBuilt() || contents(entry.path()).find("\"i386\"") == std::string::npos) {
            files += entry.path().string() + " ";
        }
    }
    // A second mistake, so that nothing runs.
    const fs::path wrong = folder.write("wrong.toml", "duration = 5\n");
    const Ran ran = simulateWith(folder, files + wrong.string());
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.errors.rfind(wrong.string() + ":", 0), 0u) << ran.errors;
}

}  // namespace
