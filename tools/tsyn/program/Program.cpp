#include "tools/tsyn/program/Program.h"

#include <CLI/CLI.hpp>
#include <vector>

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

namespace tsyn {
namespace {

using AddCommand = Command (*)(CLI::App& program);

/** In the order in which the help lists them. */
constexpr AddCommand kCommands[] = {
    addRunCommand,    addSetCommand,    addStatusCommand, addWatchCommand,
    addDoctorCommand, addRecordCommand, addPlotCommand,   addConvertCommand,
    addFeedCommand,   addExportCommand, addCheckCommand,
};

}  // namespace

int parseAndRun(int argc, char** argv, const std::string& version, const char* buildDate) {
    CLI::App program(
        "Time master or slave of IEEE 802.1AS on one Ethernet interface, a check of captures, and "
        "a look at what is wrong",
        "tsyn");
    program.require_subcommand(1);
    program.failure_message(parseErrorLine);
    program.formatter(helpFormatter());
    program.set_version_flag("--version", version, "print version, ABI and build date");
    addDescribeOption(program, buildDate);
    std::vector<Command> commands;
    for (const AddCommand add : kCommands) {
        commands.push_back(add(program));
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? outputStatus(0) : kWrongUse;
    }
    for (const Command& command : commands) {
        if (command.parser->parsed()) {
            return command.run();
        }
    }
    return kWrongUse;
}

}  // namespace tsyn
