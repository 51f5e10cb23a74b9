#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <vector>

#include "tools/tsyn/Command.h"
#include "tools/tsyn/check/CheckOptions.h"
#include "tools/tsyn/plot/PlotOptions.h"
#include "tools/tsyn/record/RecordOptions.h"
#include "tools/tsyn/run/RunOptions.h"
#include "tools/tsyn/status/StatusCommand.h"
#include "tools/tsyn/watch/WatchCommand.h"

namespace {

using AddCommand = tsyn::Command (*)(CLI::App& program);

/** In the order in which the help lists them. */
constexpr AddCommand kCommands[] = {
    tsyn::addRunCommand,
    tsyn::addStatusCommand,
    tsyn::addWatchCommand,
    tsyn::addCheckCommand,
    tsyn::addRecordCommand,
    tsyn::addPlotCommand,
};

std::string oneLine(const CLI::App* program, const CLI::Error& error) {
    const std::string problem = std::string("tsyn: ") + error.what();
    const std::vector<const CLI::App*> named =
        program->get_subcommands([](const CLI::App* command) { return command->parsed(); });
    return named.empty()
               ? problem + "; 'tsyn --help' lists the commands\n"
               : problem + "; 'tsyn " + named.front()->get_name() + " --help' lists the options\n";
}

int parseAndRun(int argc, char** argv) {
    CLI::App program(
        "Time master or slave of IEEE 802.1AS on one Ethernet interface, and a check of captures",
        "tsyn");
    program.require_subcommand(1);
    program.failure_message(oneLine);
    std::vector<tsyn::Command> commands;
    for (const AddCommand add : kCommands) {
        commands.push_back(add(program));
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? 0 : tsyn::kWrongUse;
    }
    for (const tsyn::Command& command : commands) {
        if (command.parser->parsed()) {
            return command.run();
        }
    }
    return tsyn::kWrongUse;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return parseAndRun(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tsyn: %s\n", error.what());
        return 1;
    }
}
