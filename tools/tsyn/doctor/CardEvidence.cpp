#include "tools/tsyn/doctor/CardEvidence.h"

#include <linux/ethtool.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/doctor/TextFile.h"
#include "tools/tsyn/run/InterfaceChecks.h"

namespace tsyn::doctor {
namespace {

/** Questions to the kernel about one interface. */
class InterfaceQuestions {
public:
    explicit InterfaceQuestions(const std::string& name)
        : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), name_(name) {}

    bool canAsk() const { return fd_.isOpen(); }

    bool ask(unsigned long what, ifreq& request) const {
        name_.copy(request.ifr_name, sizeof request.ifr_name - 1);
        return ioctl(fd_.get(), what, &request) == 0;
    }

    /** command: one of linux/ethtool.h, with room for its answer. */
    template <typename Command>
    bool askDriver(Command& command) const {
        return askWith(SIOCETHTOOL, command);
    }

    template <typename Data>
    bool askWith(unsigned long what, Data& data) const {
        ifreq request{};
        request.ifr_data = reinterpret_cast<char*>(&data);
        return ask(what, request);
    }

private:
    tools::OwnDescriptor fd_;
    std::string name_;
};

InterfaceFacts interfaceFacts(const InterfaceQuestions& questions, const std::string& name) {
    InterfaceFacts facts;
    facts.index = if_nametoindex(name.c_str());
    ifreq flags{};
    if (questions.ask(SIOCGIFFLAGS, flags)) {
        facts.isUp = (flags.ifr_flags & IFF_UP) != 0;
        facts.hasCarrier = (flags.ifr_flags & IFF_RUNNING) != 0;
        facts.takesEverything = (flags.ifr_flags & (IFF_PROMISC | IFF_ALLMULTI)) != 0;
    }
    // The flag follows a pulled cable only after a while; the driver knows at once.
    ethtool_value link{};
    link.cmd = ETHTOOL_GLINK;
    if (questions.askDriver(link)) {
        facts.hasCarrier = link.data != 0;
    }
    ethtool_cmd settings{};
    settings.cmd = ETHTOOL_GSET;
    if (questions.askDriver(settings) &&
        ethtool_cmd_speed(&settings) != static_cast<unsigned int>(SPEED_UNKNOWN)) {
        facts.speedMbit = ethtool_cmd_speed(&settings);
    }
    ifreq address{};
    if (questions.ask(SIOCGIFHWADDR, address)) {
        std::copy_n(address.ifr_hwaddr.sa_data, facts.address.size(), facts.address.begin());
    }
    facts.takesGptp = listsGptpAddress(textOf("/proc/net/dev_mcast"), name);
    return facts;
}

std::string problemOf(const char* checkName, const std::string& interfaceName) {
    const std::vector<Check>& checks = interfaceChecks();
    const auto check = std::find_if(checks.begin(), checks.end(), [checkName](const Check& each) {
        return std::strcmp(each.name, checkName) == 0;
    });
    return check->run(interfaceName).value_or("");
}

ClockFacts clockFacts(const InterfaceQuestions& questions, const std::string& name) {
    ClockFacts facts;
    facts.problem = problemOf("hardware clock", name);
    ethtool_ts_info info{};
    info.cmd = ETHTOOL_GET_TS_INFO;
    if (facts.problem.empty() && questions.askDriver(info)) {
        facts.index = info.phc_index;
        facts.stampingProblem = problemOf("timestamping", name);
        facts.accessProblem = problemOf("clock access", name);
    }
    return facts;
}

StampingFacts stampingFacts(const InterfaceQuestions& questions) {
    StampingFacts facts;
    hwtstamp_config config{};
    if (!questions.askWith(SIOCGHWTSTAMP, config)) {
        facts.error = errno;
        return facts;
    }
    facts.sends = config.tx_type == HWTSTAMP_TX_ON;
    facts.receiveFilter = config.rx_filter;
    return facts;
}

}  // namespace

CapabilityFacts capabilitiesIn(const std::string& status) {
    constexpr char kField[] = "\nCapEff:";
    constexpr unsigned int kNetAdmin = 12;
    constexpr unsigned int kNetRaw = 13;
    constexpr unsigned int kSysTime = 25;
    const std::size_t at = status.find(kField);
    const unsigned long long bits =
        at == std::string::npos
            ? 0
            : std::strtoull(status.c_str() + at + sizeof kField - 1, nullptr, 16);
    const auto has = [bits](unsigned int bit) { return (bits >> bit & 1) != 0; };
    return {has(kNetRaw), has(kNetAdmin), has(kSysTime)};
}

bool listsGptpAddress(const std::string& list, const std::string& interfaceName) {
    std::istringstream text(list);
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line);
        std::string index, name, users, global, address;
        words >> index >> name >> users >> global >> address;
        if (name == interfaceName && address == "0180c200000e") {
            return true;
        }
    }
    return false;
}

std::string collectCard(Evidence& evidence) {
    const std::string& name = evidence.expected.interfaceName;
    const InterfaceQuestions questions(name);
    if (!questions.canAsk()) {
        return std::string("no socket to ask the kernel with (") + std::strerror(errno) + ")";
    }
    evidence.capabilities = capabilitiesIn(textOf("/proc/self/status"));
    evidence.interface = interfaceFacts(questions, name);
    if (evidence.interface.index != 0) {
        evidence.clock = clockFacts(questions, name);
        evidence.stamping = stampingFacts(questions);
    }
    return {};
}

}  // namespace tsyn::doctor
