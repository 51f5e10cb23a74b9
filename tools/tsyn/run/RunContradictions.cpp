#include "tools/tsyn/run/RunContradictions.h"

#include <CLI/CLI.hpp>

namespace tsyn {
namespace {

bool isTold(const CLI::App& command, const std::string& name) {
    return command.get_option(name)->count() != 0;
}

void refuseWithout(const CLI::App& command, const std::string& needed,
                   const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (isTold(command, name) && !isTold(command, needed)) {
            throw CLI::RequiresError(name, needed);
        }
    }
}

}  // namespace

void refuseContradictions(const CLI::App& command, const RunOptions& options) {
    for (const char* name : {"interface", "--role"}) {
        if (!isTold(command, name)) {
            throw CLI::RequiredError(name);
        }
    }
    refuseWithout(command, "--samples", {"--truth"});
    refuseWithout(command, "--truth", {"--samples", "--sample-rate"});
    for (const char* name : {"--status", "--user-data"}) {
        if (!options.isMaster() && isTold(command, name)) {
            throw CLI::ValidationError(name, "needs --role master");
        }
    }
}

std::vector<std::string> warningsOf(const CLI::App& command, const RunOptions& options) {
    std::vector<std::string> warnings;
    const auto warn = [&](const std::vector<std::string>& names, const std::string& reason) {
        for (const std::string& name : names) {
            if (isTold(command, name)) {
                std::string& warning = warnings.emplace_back(name);
                warning += " changes nothing ";
                warning += reason;
            }
        }
    };
    if (!options.isMaster()) {
        warn({"--autosar", "--time-tlv", "--status-tlv", "--user-data-tlv", "--crc-time-flags",
              "--tx-mode"},
             "with --role slave");
        return warnings;
    }
    warn({"--propagation-delay"}, "with --role master");
    if (!options.autosarExtensions) {
        warn({"--time-tlv", "--status-tlv", "--user-data-tlv", "--crc-time-flags", "--user-data",
              "--data-id-list", "--tx-crc-mode"},
             "without --autosar");
    }
    return warnings;
}

}  // namespace tsyn
