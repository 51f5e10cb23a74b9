#include "tools/tsyn/daemon/SourceOptions.h"

#include <CLI/CLI.hpp>

#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/daemon/SpySource.h"

namespace tsyn {
namespace {

constexpr std::size_t kMostInterfaceName = 15;

std::string interfaceProblem(const std::string& name) {
    const bool isName = !name.empty() && name.size() <= kMostInterfaceName &&
                        name.find('/') == std::string::npos && name != "." && name != "..";
    return isName ? "" : "'" + name + "' is no interface name; it has 1 to 15 characters, no '/'";
}

std::string spyProblem(const std::string& text) {
    return spyAddress(text) ? "" : "'" + text + "' is no HOST or HOST:PORT with a port 1 to 65535";
}

}  // namespace

CLI::Option* addInterfaceOption(CLI::App& command, std::string& interfaceName) {
    return command
        .add_option("interface", interfaceName,
                    "interface of a daemon on this machine, whose record /dev/shm/INTERFACE is "
                    "mapped for reading only")
        ->check(CLI::Validator(interfaceProblem, ""));
}

void addSourceOptions(CLI::App& command, SourceOptions& options) {
    CLI::Option* const interface = addInterfaceOption(command, options.interfaceName);
    auto* const spy =
        command
            .add_option("--spy", options.spy,
                        "HOST[:PORT]: ask the spy provider of a daemon there instead (port 319). "
                        "The first datagram that a daemon gets zeroes its record once, for every "
                        "reader: the time is missing until the next Syncs")
            ->check(CLI::Validator(spyProblem, ""))
            ->excludes(interface);
    interface->excludes(spy);
    command.final_callback([interface, spy] {
        if (interface->count() + spy->count() == 0) {
            throw CLI::RequiredError("INTERFACE or --spy HOST");
        }
    });
}

void addLookOptions(CLI::App& command, double& staleAfterS, int& utcOffsetS) {
    command
        .add_option("--stale-after", staleAfterS,
                    "seconds without a Sync after which a daemon that tells no state of its own "
                    "is stale; more than the Sync interval (1.5)")
        ->check(realNumber(0.1, 3600.0));
    command
        .add_option("--utc-offset", utcOffsetS,
                    "seconds of TAI over UTC, to tell which of both the daemon's time is (37)")
        ->check(wholeNumber(0, 1000));
}

}  // namespace tsyn
