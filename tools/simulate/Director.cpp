#include "tools/simulate/Director.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <stdexcept>

#include "tools/simulate/Network.h"
#include "tools/simulate/Units.h"
#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace simulate {
namespace {

constexpr std::uint64_t kMillisecond = 1'000'000;

/** How often ends are noticed and progress is told. Of the scenario alone, so that looking does not
 *  make runs differ. */
std::uint64_t tickNs(std::uint64_t durationNs) {
    return std::clamp(durationNs / 1000, 100 * kMillisecond, kNsPerSecond);
}

int signalNumber(const std::string& name) {
    static const std::map<std::string, int> kNumbers = {
        {"HUP", SIGHUP},   {"INT", SIGINT},   {"TERM", SIGTERM}, {"KILL", SIGKILL},
        {"USR1", SIGUSR1}, {"USR2", SIGUSR2}, {"STOP", SIGSTOP}, {"CONT", SIGCONT}};
    return kNumbers.at(name);
}

void orderFault(const std::string& card, const Event& event, bool takeBack) {
    virtual_i210::FaultOrder order = event.fault;
    if (takeBack) {
        order.count = 0;
    }
    virtual_i210::orderFault(card, order);
}

void refuse(const std::string& card, const Event& event, bool takeBack) {
    const int number = takeBack ? 0 : event.errorNumber;
    if (event.value == "hwtstamp") {
        virtual_i210::refuseHwtstamp(card, number);
    } else {
        virtual_i210::refuseEthtool(card, number);
    }
}

}  // namespace

Director::Director(const Scenario& scenario, virtual_i210::Simulation& simulation, Nodes& nodes,
                   const std::function<void(std::uint64_t)>& progress)
    : scenario_(scenario),
      simulation_(simulation),
      nodes_(nodes),
      progress_(progress),
      steps_(timelineOf(scenario)) {
    for (const Node& node : scenario.nodes) {
        if (!node.isTsyn() && !node.truth.empty()) {
            samplers_.push_back({&node, node.startNs.value_or(0), 0, {}});
        }
    }
}

std::uint64_t Director::Sampler::nextNs() const {
    const double period = 1e9 / node->sampleRateHz;
    return startNs + static_cast<std::uint64_t>(std::llround(period * double(count)));
}

std::uint64_t Director::nextNs() const {
    std::uint64_t next = std::min(scenario_.durationNs, nextTickNs_);
    if (nextStep_ < steps_.size()) {
        next = std::min(next, steps_[nextStep_].atNs);
    }
    for (const Sampler& sampler : samplers_) {
        next = std::min(next, sampler.nextNs());
    }
    if (nodes_.anyRestarts()) {
        next = std::min(next, simulation_.nowNs() + kMillisecond);
    }
    return next;
}

void Director::run() {
    while (simulation_.nowNs() < scenario_.durationNs && nodes_.failures().empty()) {
        simulation_.sleepUntil(nextNs());
        meet(simulation_.nowNs());
    }
    endNodes();
    failures_.insert(failures_.begin(), nodes_.failures().begin(), nodes_.failures().end());
}

/** Everything that is due. */
void Director::meet(std::uint64_t nowNs) {
    nodes_.look();
    while (nextStep_ < steps_.size() && steps_[nextStep_].atNs <= nowNs) {
        carryOut(steps_[nextStep_++]);
    }
    for (Sampler& sampler : samplers_) {
        if (sampler.nextNs() <= nowNs) {
            sample(sampler);
        }
    }
    if (nextTickNs_ <= nowNs) {
        progress_(nowNs);
        nextTickNs_ += tickNs(scenario_.durationNs);
    }
}

void Director::carryOut(const Step& step) {
    if (step.kind == Step::Kind::kStart) {
        nodes_.start(step.node);
    } else if (step.event->action == Action::kProcess) {
        orderProcess(step);
    } else {
        order(step);
    }
}

void Director::order(const Step& step) {
    const Event& event = *step.event;
    const bool back = step.kind == Step::Kind::kTakeBack;
    switch (event.action) {
    case Action::kFault:
        return orderFault(step.node, event, back);
    case Action::kLink:
        return virtual_i210::setLink(step.node, (event.value == "up") != back);
    case Action::kPhc:
        return virtual_i210::hidePhc(step.node, (event.value == "hidden") != back);
    case Action::kRefuse:
        return refuse(step.node, event, back);
    case Action::kStep:
        return virtual_i210::stepPhc(step.node, back ? -event.stepNs : event.stepNs);
    case Action::kRate:
        return virtual_i210::setRatePpb(step.node,
                                        back ? scenario_.find(step.node)->ratePpb : event.ratePpb);
    case Action::kClear:
        return virtual_i210::clearFaults(step.node);
    case Action::kInterface:
        return setInterface(step.node, (event.value == "up") != back);
    case Action::kSignal:
        return nodes_.signal(step.node, back ? SIGCONT : signalNumber(event.value));
    case Action::kProcess:
        return;
    }
}

void Director::orderProcess(const Step& step) {
    const std::string& what = step.event->value;
    const bool back = step.kind == Step::Kind::kTakeBack;
    if (what == "restart") {
        nodes_.restart(step.node);
    } else if ((what == "start") != back) {
        nodes_.start(step.node);
    } else {
        nodes_.signal(step.node, what == "kill" ? SIGKILL : SIGTERM);
    }
}

void Director::sample(Sampler& sampler) {
    const double atS = secondsOf(sampler.nextNs());
    ++sampler.count;
    if (!nodes_.runs(sampler.node->name)) {
        return;
    }
    const std::uint64_t rawNs = virtual_i210::rawNowNs();
    const auto own = virtual_i210::truePhcNs(sampler.node->cardName.c_str(), rawNs);
    const auto truth = virtual_i210::truePhcNs(sampler.node->truth.c_str(), rawNs);
    if (own && truth) {
        sampler.samples.push_back({atS, static_cast<std::int64_t>(*own - *truth), 0, true});
    }
}

/** Time goes on until they have ended, since ending takes some. */
void Director::endNodes() {
    constexpr unsigned kMostLooks = 1000;
    nodes_.endAll();
    for (unsigned look = 0; look < kMostLooks && nodes_.anyRuns(); ++look) {
        simulation_.sleepUntil(simulation_.nowNs() + 10 * kMillisecond);
        nodes_.look();
    }
    for (const Node& node : scenario_.nodes) {
        if (nodes_.runs(node.name)) {
            failures_.push_back("node " + node.name + " did not end within 10 s of SIGTERM");
            nodes_.signal(node.name, SIGKILL);
        }
    }
}

void Director::giveSamples(std::map<std::string, NodeResult>& results) const {
    for (const Sampler& sampler : samplers_) {
        results[sampler.node->name].samples = sampler.samples;
    }
}

}  // namespace simulate
