#include "tools/tsyn/doctor/CardGates.h"

#include <linux/net_tstamp.h>

#include <algorithm>
#include <cstring>

#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

/** Splits "what is wrong; what to do". */
Verdict failedWith(const std::string& problem) {
    const std::size_t end = problem.find("; ");
    return end == std::string::npos ? failed(problem, "see 'tsyn run --help'")
                                    : failed(problem.substr(0, end), problem.substr(end + 2));
}

std::string processText(const Process& process) {
    return process.name + " (pid " + std::to_string(process.pid) + ")";
}

std::string listText(const std::vector<const Process*>& processes) {
    std::string text;
    for (const Process* process : processes) {
        text += (text.empty() ? "" : ", ") + processText(*process);
    }
    return text;
}

std::vector<const Process*> steerersOf(const Evidence& evidence) {
    std::vector<const Process*> found;
    for (const Process& process : evidence.processes) {
        const bool byName = process.steersByName && process.namesOurs;
        if (!process.writesRecord && (process.mayWriteClock || byName)) {
            found.push_back(&process);
        }
    }
    return found;
}

/** A program that steers some clock, and nobody may look which. */
const Process* suspectOf(const Evidence& evidence) {
    const auto found = std::find_if(
        evidence.processes.begin(), evidence.processes.end(), [](const Process& process) {
            return process.steersByName && !process.isVisible && !process.writesRecord;
        });
    return found == evidence.processes.end() ? nullptr : &*found;
}

const char* filterName(int filter) {
    switch (filter) {
    case HWTSTAMP_FILTER_NONE:
        return "none";
    case HWTSTAMP_FILTER_ALL:
        return "all";
    case HWTSTAMP_FILTER_PTP_V2_EVENT:
        return "ptpv2-event";
    case HWTSTAMP_FILTER_PTP_V2_L2_EVENT:
        return "ptpv2-l2-event";
    default:
        return "unsuited";
    }
}

bool suits(int filter) {
    return filter == HWTSTAMP_FILTER_ALL || filter == HWTSTAMP_FILTER_PTP_V2_EVENT ||
           filter == HWTSTAMP_FILTER_PTP_V2_L2_EVENT;
}

}  // namespace

std::vector<const Process*> daemonsOf(const Evidence& evidence) {
    std::vector<const Process*> daemons;
    for (const Process& process : evidence.processes) {
        const bool isChild = std::any_of(
            evidence.processes.begin(), evidence.processes.end(), [&](const Process& other) {
                return other.writesRecord && other.pid == process.parent;
            });
        if (process.writesRecord && !isChild) {
            daemons.push_back(&process);
        }
    }
    return daemons;
}

int daemonPid(const Evidence& evidence) {
    const std::vector<const Process*> daemons = daemonsOf(evidence);
    if (!daemons.empty()) {
        return daemons.front()->pid;
    }
    return evidence.record.ownerLives ? evidence.record.ownerPid : 0;
}

bool recordMoves(const Evidence& evidence) {
    const RecordFacts& record = evidence.record;
    return record.before && record.after &&
           std::memcmp(&*record.before, &*record.after, sizeof *record.after) != 0;
}

bool daemonLives(const Evidence& evidence) {
    return !daemonsOf(evidence).empty() || evidence.record.ownerLives || recordMoves(evidence);
}

Verdict judgeInterface(const Evidence& evidence) {
    const InterfaceFacts& interface = evidence.interface;
    if (interface.index == 0) {
        return failed("no interface " + evidence.expected.interfaceName,
                      "'ip link' lists those there are");
    }
    return passed(evidence.expected.interfaceName + " has index " +
                  std::to_string(interface.index) + " and address " + macText(interface.address));
}

Verdict judgeCarrier(const Evidence& evidence) {
    const InterfaceFacts& interface = evidence.interface;
    if (!interface.isUp) {
        return failed("the interface is down",
                      "'ip link set " + evidence.expected.interfaceName + " up' raises it");
    }
    if (!interface.hasCarrier) {
        return failed("no carrier",
                      "plug the cable in, and see that the other end is up and set "
                      "to the same speed and master or slave of its PHY");
    }
    return passed(interface.speedMbit ? std::to_string(*interface.speedMbit) + " Mbit/s"
                                      : std::string("carrier, speed untold"));
}

Verdict judgeCapabilities(const Evidence& evidence) {
    const CapabilityFacts& has = evidence.capabilities;
    constexpr char kGive[] =
        "run as root, or give it the capability (setcap cap_net_raw,cap_net_admin+ep, or "
        "AmbientCapabilities= of a service)";
    const auto text = [](bool there, const char* name) {
        return std::string(there ? "" : "no ") + name;
    };
    const std::string found = text(has.netRaw, "CAP_NET_RAW") + ", " +
                              text(has.netAdmin, "CAP_NET_ADMIN") + ", " +
                              text(has.sysTime, "CAP_SYS_TIME");
    if (!has.netRaw) {
        return failed(found + ": nothing can be heard, and no daemon can be run", kGive);
    }
    if (!has.netAdmin && !daemonLives(evidence)) {
        return failed(found + ": no daemon runs, and this user could not run one", kGive);
    }
    return passed(found + (has.netAdmin ? "" : " (only who runs a daemon needs it)"));
}

Verdict judgeClock(const Evidence& evidence) {
    const ClockFacts& clock = evidence.clock;
    for (const std::string& problem : {clock.problem, clock.stampingProblem}) {
        if (!problem.empty()) {
            return failedWith(problem);
        }
    }
    const std::string device = "/dev/ptp" + std::to_string(clock.index);
    if (!clock.accessProblem.empty() && !daemonLives(evidence)) {
        return failedWith(clock.accessProblem);
    }
    return passed(device + (clock.accessProblem.empty()
                                ? ", can be read and set"
                                : ", not open to this user (the daemon runs as another)"));
}

Verdict judgeSteering(const Evidence& evidence) {
    const std::vector<const Process*> daemons = daemonsOf(evidence);
    const std::vector<const Process*> others = steerersOf(evidence);
    if (!others.empty()) {
        return failed("the clock is also in the hands of " + listText(others),
                      "stop it ('systemctl stop' its service, or kill " +
                          std::to_string(others.front()->pid) + "): one program may steer a clock");
    }
    if (daemons.size() > 1) {
        return failed(
            std::to_string(daemons.size()) + " daemons write one record: " + listText(daemons),
            "stop all but one; the switch oneDaemon refuses a second");
    }
    if (const Process* suspect = suspectOf(evidence)) {
        return skipped("which clock " + processText(*suspect) +
                       " steers is hidden from this user; look as root");
    }
    return passed(daemons.empty() ? "nobody has the clock"
                                  : "only " + processText(*daemons.front()));
}

Verdict judgeTimestamping(const Evidence& evidence) {
    const StampingFacts& stamping = evidence.stamping;
    if (stamping.error != 0) {
        return skipped("the driver does not tell (" + std::string(std::strerror(stamping.error)) +
                       ")");
    }
    const std::string found = std::string("transmit ") + (stamping.sends ? "on" : "off") +
                              ", receive filter " + filterName(stamping.receiveFilter);
    if (stamping.sends && suits(stamping.receiveFilter)) {
        return passed(found);
    }
    if (!daemonLives(evidence)) {
        return skipped(found + "; a daemon switches it on when it starts");
    }
    return failed(found,
                  "another program switched it off behind the daemon (hwstamp_ctl, ptp4l, a "
                  "new driver): end that one, then start the daemon anew");
}

Verdict judgeReception(const Evidence& evidence) {
    const InterfaceFacts& interface = evidence.interface;
    if (interface.takesEverything) {
        return passed("promiscuous or all multicast");
    }
    if (interface.takesGptp) {
        return passed("01:80:c2:00:00:0e is in the filter");
    }
    if (!daemonLives(evidence)) {
        return skipped("the card drops 01:80:c2:00:00:0e; a daemon makes it promiscuous");
    }
    return failed("the card drops 01:80:c2:00:00:0e: not promiscuous, not in the filter",
                  "'ip link set " + evidence.expected.interfaceName +
                      " promisc on', and find out who switched it off");
}

}  // namespace tsyn::doctor
