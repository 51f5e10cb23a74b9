#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <vector>

#include "api/BuildStamp.h"
#include "tools/tsyn/Abi.h"
#include "tools/tsyn/Command.h"
#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/check/CheckOptions.h"
#include "tools/tsyn/cli/HelpText.h"
#include "tools/tsyn/cli/ParseErrors.h"
#include "tools/tsyn/convert/ConvertCommand.h"
#include "tools/tsyn/describe/Describe.h"
#include "tools/tsyn/doctor/DoctorOptions.h"
#include "tools/tsyn/export/ExportCommand.h"
#include "tools/tsyn/feed/FeedCommand.h"
#include "tools/tsyn/plot/PlotOptions.h"
#include "tools/tsyn/record/RecordOptions.h"
#include "tools/tsyn/run/RunOptions.h"
#include "tools/tsyn/set/SetCommand.h"
#include "tools/tsyn/status/StatusCommand.h"
#include "tools/tsyn/watch/WatchCommand.h"

namespace {

using AddCommand = tsyn::Command (*)(CLI::App& program);

/** In the order in which the help lists them. */
constexpr AddCommand kCommands[] = {
    tsyn::addRunCommand,    tsyn::addSetCommand,    tsyn::addStatusCommand, tsyn::addWatchCommand,
    tsyn::addDoctorCommand, tsyn::addRecordCommand, tsyn::addPlotCommand,   tsyn::addConvertCommand,
    tsyn::addFeedCommand,   tsyn::addExportCommand, tsyn::addCheckCommand,
};

/** Version, ABI and the moment that the library's log tells of this build. */
std::string versionText() {
    return std::string("tsyn " TSYN_VERSION " (") + tsyn::abiName() + "), built " + kBuildDate +
           " " + kBuildTime + " UTC";
}

int parseAndRun(int argc, char** argv) {
    CLI::App program(
        "Time master or slave of IEEE 802.1AS on one Ethernet interface, a check of captures, and "
        "a look at what is wrong",
        "tsyn");
    program.require_subcommand(1);
    program.failure_message(tsyn::parseErrorLine);
    program.formatter(tsyn::helpFormatter());
    program.set_version_flag("--version", versionText, "print version, ABI and build date");
    tsyn::addDescribeOption(program, kBuildDate);
    std::vector<tsyn::Command> commands;
    for (const AddCommand add : kCommands) {
        commands.push_back(add(program));
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? tsyn::outputStatus(0) : tsyn::kWrongUse;
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
