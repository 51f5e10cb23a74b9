#include "tools/virtual_i210/Simulation.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tools/virtual_i210/State.h"
#include "tools/virtual_i210/VirtualI210.h"
#include "tools/virtual_i210/simulated/Signals.h"

namespace virtual_i210 {

struct Simulation::Parts {
    Conductor& conductor;
    std::uint32_t slot;
};

Simulation::Simulation(const std::string& configText) {
    attach(configText);
    Conductor* conductor = attachedConductor();
    if (conductor == nullptr) {
        throw ConfigError(std::string(kConfigVariable) +
                          ": a simulation needs clock=simulated in its settings");
    }
    const std::uint32_t slot = conductor->enter(getpid());
    parts_ = std::make_unique<Parts>(Parts{*conductor, slot});
}

Simulation::~Simulation() {
    parts_->conductor.leaveProcess(getpid());
}

std::uint64_t Simulation::nowNs() const {
    return parts_->conductor.nowNs() - kFirstInstantNs;
}

void Simulation::sleepUntil(std::uint64_t ns) {
    parts_->conductor.sleepUntil(parts_->slot, kFirstInstantNs + ns);
}

pid_t Simulation::start(const std::function<void()>& exec) {
    const std::uint32_t slot = parts_->conductor.reserve(0, true);
    const pid_t pid = fork();
    if (pid == 0) {
        parts_->conductor.setProcess(slot, getpid());
        exec();
        _exit(127);
    }
    if (pid < 0) {
        const int reason = errno;
        parts_->conductor.leave(slot);
        throw std::system_error(reason, std::generic_category(), "fork");
    }
    parts_->conductor.setProcess(slot, pid);
    return pid;
}

void Simulation::signal(pid_t pid, int number) {
    signalProcess(parts_->conductor, pid, number, ::kill);
}

std::optional<int> Simulation::ended(pid_t pid) {
    // A process that has given its turns back is about to end; one that died has not.
    const bool ending = !parts_->conductor.hasThreads(pid);
    int status = 0;
    if (waitpid(pid, &status, ending ? 0 : WNOHANG) != pid) {
        return std::nullopt;
    }
    parts_->conductor.leaveProcess(pid);
    return status;
}

}  // namespace virtual_i210
