#include "tools/simulate/Workers.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "tools/simulate/Network.h"
#include "tools/simulate/Run.h"

namespace simulate {
namespace {

constexpr std::array<int, 3> kEndSignals{SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t interrupted = 0;

void noteInterrupt(int) {
    interrupted = 1;
}

/** A run under way, as the parent sees it. */
struct Worker {
    std::size_t job = 0;
    std::size_t slot = 0; /**< which of the CPUs */
    pid_t pid = 0;
    int pipe = -1;
    std::string unread;
    std::optional<RunSummary> summary;
    std::chrono::steady_clock::time_point begin;
};

/** A whole line at once, so that none is torn. Full or closed pipes lose it. */
void tell(int pipe, const std::string& line) {
    const std::string whole = line + "\n";
    std::size_t done = 0;
    while (done < whole.size()) {
        const ssize_t count = write(pipe, whole.data() + done, whole.size() - done);
        if (count <= 0) {
            return;
        }
        done += static_cast<std::size_t>(count);
    }
}

RunSummary failedRun(const Job& job, const std::string& why) {
    RunSummary summary;
    summary.verdict = "failed";
    summary.complaints.push_back(job.scenario->file + ": " + why);
    return summary;
}

/** In the child. */
[[noreturn]] void work(const Job& job, const WorkSetup& setup, int cpu, int pipe) {
    // Signals of the terminal are for the parent, which ends the run as a whole.
    setsid();
    for (const int number : kEndSignals) {
        std::signal(number, SIG_DFL);
    }
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(cpu, &cpus);
    sched_setaffinity(0, sizeof cpus, &cpus);
    RunSummary summary;
    try {
        enterNamespaces();
        summary = runOnce(*job.scenario, {job.seed, job.results, setup.buildFolder, setup.picture},
                          [pipe](std::uint64_t ns) { tell(pipe, "at " + std::to_string(ns)); });
    } catch (const std::exception& error) {
        summary = failedRun(job, error.what());
    }
    tell(pipe, "end " + toJson(summary).dump());
    _exit(0);
}

/** What a run that was interrupted early left: folders that hold something are not removed. */
void removeEmpty(const std::filesystem::path& results) {
    std::error_code error;
    if (std::filesystem::remove(results, error)) {
        std::filesystem::remove(results.parent_path(), error);
    }
}

class Crew {
public:
    Crew(const std::vector<Job>& jobs, const WorkSetup& setup, Progress& progress)
        : jobs_(jobs), setup_(setup), progress_(progress), cpus_(allowedCpus()) {
        for (const Job& job : jobs) {
            outcomes_.push_back({job, {}, 0.0});
            outcomes_.back().summary.verdict = "not begun";
        }
    }

    std::vector<Outcome> run();

private:
    void begin();
    std::size_t freeSlot() const;
    void listen();
    bool hear(Worker& worker);
    void take(Worker& worker, const std::string& line);
    void end(Worker& worker);
    void awaitSilence(Worker& worker);
    void endAll();

    const std::vector<Job>& jobs_;
    const WorkSetup& setup_;
    Progress& progress_;
    std::vector<int> cpus_;
    std::vector<Worker> workers_;
    std::vector<Outcome> outcomes_;
    std::size_t next_ = 0;
};

std::size_t Crew::freeSlot() const {
    for (std::size_t slot = 0;; ++slot) {
        const auto taken = std::find_if(workers_.begin(), workers_.end(),
                                        [&](const Worker& other) { return other.slot == slot; });
        if (taken == workers_.end()) {
            return slot;
        }
    }
}

void Crew::begin() {
    Worker worker;
    worker.job = next_++;
    worker.slot = freeSlot();
    worker.begin = std::chrono::steady_clock::now();
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    worker.pid = fork();
    if (worker.pid < 0) {
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    if (worker.pid == 0) {
        close(ends[0]);
        work(jobs_[worker.job], setup_, cpus_[worker.slot % cpus_.size()], ends[1]);
    }
    close(ends[1]);
    worker.pipe = ends[0];
    outcomes_[worker.job].summary.verdict = "interrupted";
    progress_.started(jobs_[worker.job]);
    workers_.push_back(std::move(worker));
}

void Crew::take(Worker& worker, const std::string& line) {
    if (line.rfind("at ", 0) == 0) {
        progress_.at(jobs_[worker.job], std::stoull(line.substr(3)));
    } else if (line.rfind("end ", 0) == 0) {
        worker.summary = summaryFrom(Json::parse(line.substr(4)));
    }
}

/** False when the worker has nothing more to say. */
bool Crew::hear(Worker& worker) {
    std::array<char, 4096> text{};
    const ssize_t count = read(worker.pipe, text.data(), text.size());
    if (count <= 0) {
        return count < 0 && errno == EINTR;
    }
    worker.unread.append(text.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = worker.unread.find('\n')) != std::string::npos;) {
        take(worker, worker.unread.substr(0, end));
        worker.unread.erase(0, end + 1);
    }
    return true;
}

void Crew::end(Worker& worker) {
    int status = 0;
    while (waitpid(worker.pid, &status, 0) < 0 && errno == EINTR) {
    }
    close(worker.pipe);
    Outcome& outcome = outcomes_[worker.job];
    outcome.wallS =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - worker.begin).count();
    if (worker.summary) {
        outcome.summary = *worker.summary;
    } else if (interrupted == 0) {
        outcome.summary = failedRun(outcome.job, "the run's own process ended with status " +
                                                     std::to_string(WEXITSTATUS(status)));
    } else {
        removeEmpty(outcome.job.results);
    }
    progress_.ended(outcome);
}

void Crew::listen() {
    constexpr int kWaitMs = 200;
    std::vector<pollfd> pipes;
    for (const Worker& worker : workers_) {
        pipes.push_back({worker.pipe, POLLIN, 0});
    }
    if (poll(pipes.data(), pipes.size(), kWaitMs) <= 0) {
        return;
    }
    for (std::size_t i = pipes.size(); i-- > 0;) {
        if (pipes[i].revents != 0 && !hear(workers_[i])) {
            end(workers_[i]);
            workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

/** Until a run's inner process has gone too, after which nobody makes its folder. */
void Crew::awaitSilence(Worker& worker) {
    constexpr int kWaitMs = 200;
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    pollfd pipe{worker.pipe, POLLIN, 0};
    while (std::chrono::steady_clock::now() < latest) {
        if (poll(&pipe, 1, kWaitMs) > 0 && !hear(worker)) {
            return;
        }
    }
}

/** With a run's first process, the kernel ends all others of its namespace. */
void Crew::endAll() {
    for (const Worker& worker : workers_) {
        kill(worker.pid, SIGKILL);
    }
    for (Worker& worker : workers_) {
        awaitSilence(worker);
        end(worker);
    }
    workers_.clear();
}

std::vector<Outcome> Crew::run() {
    while (interrupted == 0 && (next_ < jobs_.size() || !workers_.empty())) {
        while (next_ < jobs_.size() && workers_.size() < setup_.atOnce) {
            begin();
        }
        listen();
        progress_.show();
    }
    endAll();
    return std::move(outcomes_);
}

}  // namespace

std::vector<int> allowedCpus() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    std::vector<int> result;
    if (sched_getaffinity(0, sizeof cpus, &cpus) == 0) {
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            if (CPU_ISSET(cpu, &cpus)) {
                result.push_back(cpu);
            }
        }
    }
    if (result.empty()) {
        result.push_back(0);
    }
    return result;
}

std::vector<Outcome> runAll(const std::vector<Job>& jobs, const WorkSetup& setup,
                            Progress& progress) {
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    for (const int number : kEndSignals) {
        sigaction(number, &action, nullptr);
    }
    return Crew(jobs, setup, progress).run();
}

}  // namespace simulate
