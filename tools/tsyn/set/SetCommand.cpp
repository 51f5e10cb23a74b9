#include "tools/tsyn/set/SetCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <vector>

#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/TimeBaseNames.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/control/ControlSocket.h"
#include "tools/tsyn/control/SettingRequest.h"
#include "tools/tsyn/daemon/Owner.h"
#include "tools/tsyn/daemon/SegmentSource.h"

namespace tsyn {
namespace {

struct SetOptions {
    std::string interfaceName;
    std::string time;
    std::string step;
    bool card = false;
    std::string status;
    std::string userData;
    std::string controlPath;
    int utcOffsetS = kUtcOffsetS;
};

/** A whole number alone may be meant in seconds as well as in ns. */
std::string timeProblem(const std::string& text) {
    return isBareNumber(text) || !parseTime(text, kUtcOffsetS)
               ? "'" + text + "' is no time; " + kTimeForms + " with their unit"
               : "";
}

std::string stepProblem(const std::string& text) {
    return parseSpan(text) ? "" : "'" + text + "' is no step; write one such as +1.5s or -20ms";
}

void addOptions(CLI::App& command, SetOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface of the master")
        ->required();
    auto* time = command
                     .add_option("--time", options.time,
                                 "the time to distribute, such as 2026-11-21T20:25:40Z or "
                                 "1795206340.5s; ends in TAI: in that")
                     ->check(CLI::Validator(timeProblem, ""));
    auto* step = command
                     .add_option("--step", options.step,
                                 "step of the distributed time, such as +1.5s, -20ms, +300ns")
                     ->check(CLI::Validator(stepProblem, ""))
                     ->excludes(time);
    command.add_flag("--card", options.card,
                     "set the card's clock rather than an offset on top of it");
    std::vector<std::string> statuses;
    for (const auto& [name, number] : timeBaseNames()) {
        statuses.push_back(name);
    }
    auto* status =
        command.add_option("--status", options.status, "time base")->check(oneOfWords(statuses));
    auto* userData = command
                         .add_option("--user-data", options.userData,
                                     "user bytes to send, 1 to 3 in hexadecimal")
                         ->type_name("HEX")
                         ->check(hexDigits(1, 3));
    command
        .add_option("--control", options.controlPath,
                    "socket of the daemon, where its own --control put it elsewhere")
        ->type_name("PATH");
    command.final_callback([=] {
        if (time->count() + step->count() + status->count() + userData->count() == 0) {
            throw CLI::RequiredError("one of --time, --step, --status, --user-data");
        }
    });
}

SettingRequest requestOf(const SetOptions& options) {
    SettingRequest request;
    if (!options.time.empty()) {
        request.timeNs = parseTime(options.time, options.utcOffsetS);
    }
    if (!options.step.empty()) {
        request.stepNs = parseSpan(options.step);
    }
    request.setsCard = options.card;
    if (!options.status.empty()) {
        request.status = options.status;
    }
    if (!options.userData.empty()) {
        request.userData = options.userData;
    }
    return request;
}

/** Whether a daemon runs there that follows another. */
bool isSlave(const std::string& interfaceName) {
    SegmentSource source(interfaceName);
    const std::optional<Look> look = source.look(0.0);
    return look && roleOf(*look) == DaemonRole::kSlave &&
           OwnerFinder().find(*look, source.segmentFile()).life != Owner::Life::kEnded;
}

int setCommand(const SetOptions& options) {
    const std::vector<std::string> paths = options.controlPath.empty()
                                               ? controlPaths(options.interfaceName)
                                               : std::vector<std::string>{options.controlPath};
    std::string answer;
    std::string problems;
    for (const std::string& path : paths) {
        const std::string problem = exchangeRequest(path, requestText(requestOf(options)), answer);
        if (problem.empty()) {
            std::string text;
            if (readAnswer(answer, text)) {
                std::printf("%s\n", text.c_str());
                return outputStatus(0);
            }
            std::fprintf(stderr, "tsyn: %s: %s\n", options.interfaceName.c_str(), text.c_str());
            return 1;
        }
        problems += (problems.empty() ? "" : "; ") + problem;
    }
    if (isSlave(options.interfaceName)) {
        std::fprintf(stderr,
                     "tsyn: %s: its daemon is a slave, which follows its master and cannot "
                     "be set; ask on the master\n",
                     options.interfaceName.c_str());
        return 1;
    }
    std::fprintf(stderr,
                 "tsyn: %s: no daemon takes requests (%s); it does when started with --control "
                 "auto, from its own user and root\n",
                 options.interfaceName.c_str(), problems.c_str());
    return 1;
}

}  // namespace

Command addSetCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "set", "Change time, status or user data of a master that runs with --control");
    const auto options = std::make_shared<SetOptions>();
    addOptions(*parser, *options);
    return {parser, [options] { return setCommand(*options); }};
}

}  // namespace tsyn
