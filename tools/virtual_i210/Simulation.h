#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace virtual_i210 {

/** A run in simulated time, as seen by the program that directs it: it links the core, is not
 *  preloaded itself, and is one of the run's threads. While it does not sleep, nothing else runs
 *  and time stands still. For one thread. */
class Simulation {
public:
    /** Creates the state of these cards (clock=simulated). Throws ConfigError. */
    explicit Simulation(const std::string& configText);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    /** Nanoseconds since the beginning of the run. */
    std::uint64_t nowNs() const;

    /** Lets the others run until then. */
    void sleepUntil(std::uint64_t ns);

    /** Forks; the child calls `exec`, which replaces it by a program with the preloaded card. The
     *  program's first turn is at the present time, however long it takes to load. Throws
     *  std::system_error. */
    pid_t start(const std::function<void()>& exec);

    /** Sends a signal and returns when the process has met it or has ended. */
    void signal(pid_t pid, int number);

    /** The wait status of a child that has ended, which is told once; nothing while it runs. */
    std::optional<int> ended(pid_t pid);

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace virtual_i210
