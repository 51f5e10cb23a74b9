#include "tools/tsyn/doctor/DoctorOptions.h"

#include <net/if.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/doctor/DoctorCommand.h"
#include "tools/tsyn/doctor/Told.h"

namespace tsyn {
namespace {

std::string interfaceNameProblem(const std::string& name) {
    return name.empty() || name.size() >= IFNAMSIZ ? "an interface name has 1 to 15 characters"
                                                   : "";
}

void addExpectations(CLI::App& command, DoctorOptions& options) {
    command
        .add_option("--role", options.role,
                    "what the daemon here is; unless told, this and the next are what the daemon "
                    "uses as far as it shows, otherwise what 'tsyn run' has as its default")
        ->check(oneOfWords({"master", "slave"}));
    command.add_option("--profile", options.profile, "what a slave takes")
        ->check(oneOfWords({"deployed", "standard"}));
    command.add_option("--domain", options.domain, "PTP domain, 0 to 15")
        ->check(wholeNumber(0, 15));
    command.add_option("--vlan-id", options.vlanId, "VLAN id, 0 to 4096; -1: untagged")
        ->check(wholeNumber(-1, 4096));
    command.add_option("--sync-interval", options.syncIntervalMs, "Sync period in ms, from 125")
        ->type_name("MS")
        ->check(realNumber(125.0, 3600000.0));
    command
        .add_option("--data-id-list", options.dataIdList,
                    "DataIDList of the master, 16 bytes in hexadecimal")
        ->type_name("HEX")
        ->check(hexDigits(DataIdList().size(), DataIdList().size()));
}

}  // namespace

doctor::Evidence DoctorOptions::question() const {
    doctor::Evidence evidence;
    evidence.expected.interfaceName = interfaceName;
    evidence.expected.listenS = listenS;
    doctor::Settings& asked = evidence.asked;
    asked.domain = domain;
    asked.vlanId = vlanId;
    asked.syncIntervalMs = syncIntervalMs;
    if (!role.empty()) {
        asked.master = role == "master";
    }
    if (!profile.empty()) {
        asked.anyMinorVersion = profile == "standard";
    }
    if (!dataIdList.empty()) {
        asked.dataIds = doctor::dataIdsOf(dataIdList);
    }
    return evidence;
}

void addDoctorOptions(CLI::App& command, DoctorOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface such as eth1")
        ->required()
        ->check(interfaceNameProblem);
    addExpectations(command, options);
    command.add_option("--listen", options.listenS, "seconds to listen, 0.1 to 86400 (3)")
        ->type_name("SECONDS")
        ->check(realNumber(0.1, 86400.0));
    command.add_flag("--json", options.json, "one JSON object instead of lines of text");
}

Command addDoctorCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "doctor",
        "Tell why time on an interface is not right, gate by gate, without disturbing its daemon; "
        "status 0: all pass, 1: one fails, 2: cannot look");
    const auto options = std::make_shared<DoctorOptions>();
    addDoctorOptions(*parser, *options);
    return {parser, [options] { return doctorCommand(*options); }};
}

}  // namespace tsyn
