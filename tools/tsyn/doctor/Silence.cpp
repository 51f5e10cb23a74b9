#include "tools/tsyn/doctor/Silence.h"

#include <algorithm>

#include "tools/tsyn/TimeBaseNames.h"
#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/WireView.h"

namespace tsyn::doctor {
namespace {

const Process* stoppedDaemon(const Evidence& evidence) {
    const std::vector<const Process*> daemons = daemonsOf(evidence);
    const auto found = std::find_if(daemons.begin(), daemons.end(),
                                    [](const Process* daemon) { return daemon->isStopped; });
    return found == daemons.end() ? nullptr : *found;
}

Verdict stopped(const std::string& found, const Process& daemon) {
    const std::string pid = std::to_string(daemon.pid);
    return failed(found + ": its process " + pid + " was stopped and hangs",
                  "have it go on: kill -CONT " + pid);
}

bool isGlobal(unsigned int status) {
    return (status & timeBaseNames().at("global")) != 0;
}

std::string statusName(unsigned int status) {
    for (const auto& [name, number] : timeBaseNames()) {
        if (number == status) {
            return name;
        }
    }
    return std::to_string(status);
}

}  // namespace

std::optional<Verdict> wrongRole(const Evidence& evidence) {
    const std::optional<bool>& asked = evidence.asked.master;
    const std::optional<bool>& used = evidence.used.master;
    if (!asked || !used || *asked == *used) {
        return {};
    }
    const auto name = [](bool master) { return std::string(master ? "master" : "slave"); };
    return failed("a " + name(*asked) + " was asked for, but this daemon is a " + name(*used),
                  "look with --role " + name(*used) + ", or run it as a " + name(*asked));
}

Verdict silentMaster(const Evidence& evidence) {
    const Settings& used = evidence.used;
    const std::string told = "this master was told to send no Sync: ";
    const std::string setGlobal =
        "'tsyn set " + evidence.expected.interfaceName + " --status global'";
    if (const Process* daemon = stoppedDaemon(evidence)) {
        return stopped("this master sends no Sync", *daemon);
    }
    if (!used.sendsSync.value_or(true)) {
        return failed(told + "--tx-mode 0", "start it with --tx-mode 1");
    }
    if (used.needsGlobalTime.value_or(false)) {
        const unsigned int status = used.timeBaseStatus.value_or(0);
        const std::string next = setGlobal +
                                 ", which needs --control, or start it with "
                                 "--status global; otherwise see its log";
        return isGlobal(status)
                   ? failed(
                         "this master sends no Sync: with --autosar it does so only while its "
                         "status is global, and it was given another one while it ran",
                         next)
                   : failed(told + "--autosar, and --status " + statusName(status), next);
    }
    return failed("this node sends no Sync",
                  "look at its role, --tx-mode 1, and with --autosar at --status global (" +
                      setGlobal + "); otherwise see its log");
}

Verdict idleSlave(const Evidence& evidence, const std::string& found) {
    if (const Process* daemon = stoppedDaemon(evidence)) {
        return stopped(found, *daemon);
    }
    if (masterSyncs(evidence).empty()) {
        return failed(found, "mend what keeps the Sync away, which is told above");
    }
    return failed(found, evidence.used.domain && evidence.used.vlanId
                             ? "the Sync that come have the domain and the VLAN that it uses: see "
                               "in its log why it takes none"
                             : "it may have been told another domain, VLAN or master: see its "
                               "options and its log");
}

}  // namespace tsyn::doctor
