#include "tools/tsyn/doctor/DoctorOptions.h"

#include <net/if.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "tools/tsyn/HexText.h"
#include "tools/tsyn/doctor/DoctorCommand.h"

namespace tsyn {
namespace {

/** Unlike CLI::Range, refuses "nan" too. */
CLI::Validator within(double least, double most) {
    return CLI::Validator(
        [least, most](std::string& text) -> std::string {
            double value = 0.0;
            if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
                return {};
            }
            return "value " + text + " not in range " + std::to_string(least) + " to " +
                   std::to_string(most);
        },
        "");
}

std::string interfaceNameProblem(const std::string& name) {
    return name.empty() || name.size() >= IFNAMSIZ ? "an interface name has 1 to 15 characters"
                                                   : "";
}

void addExpectations(CLI::App& command, DoctorOptions& options) {
    command.add_option("--role", options.role, "what the daemon here is: master or slave (slave)")
        ->check(CLI::IsMember({"master", "slave"}));
    command.add_option("--profile", options.profile, "deployed or standard (standard)")
        ->check(CLI::IsMember({"deployed", "standard"}));
    command.add_option("--domain", options.domain, "PTP domain, 0..15 (0)")
        ->check(CLI::Range(0, 15));
    command.add_option("--vlan-id", options.vlanId, "VLAN id, 0..4096; -1: untagged (-1)")
        ->check(CLI::Range(-1, 4096));
    command
        .add_option("--sync-interval", options.syncIntervalMs, "Sync period in ms, from 125 (125)")
        ->check(within(125.0, 3600000.0));
    command
        .add_option("--data-id-list", options.dataIdList,
                    "DataIDList of the master, 16 bytes in hexadecimal")
        ->check([](const std::string& text) {
            return hexProblem(text, DataIdList().size(), DataIdList().size());
        });
}

}  // namespace

doctor::Expectation DoctorOptions::expectation() const {
    doctor::Expectation expected;
    expected.interfaceName = interfaceName;
    expected.master = role == "master";
    expected.domain = domain;
    expected.vlanId = vlanId;
    expected.anyMinorVersion = profile == "standard";
    expected.syncIntervalMs = syncIntervalMs;
    expected.listenS = listenS;
    if (!dataIdList.empty()) {
        const std::vector<unsigned char> bytes = hexBytes(dataIdList);
        expected.dataIds.emplace();
        std::copy_n(bytes.begin(), expected.dataIds->size(), expected.dataIds->begin());
    }
    return expected;
}

void addDoctorOptions(CLI::App& command, DoctorOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface such as eth1")
        ->required()
        ->check(interfaceNameProblem);
    addExpectations(command, options);
    command.add_option("--listen", options.listenS, "seconds to listen, 0.1 to 86400 (3)")
        ->check(within(0.1, 86400.0));
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
