#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tools/tsyn/check/CheckCommand.h"
#include "tools/tsyn/run/RunCommand.h"
#include "tools/tsyn/run/RunOptions.h"

namespace {

std::string oneLine(const CLI::App*, const CLI::Error& error) {
    return std::string("tsyn: ") + error.what() +
           "; 'tsyn run --help' and 'tsyn check --help' list the options\n";
}

CLI::App* addCommand(CLI::App& app, const char* name, const char* description) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->failure_message(oneLine);
    return command;
}

int parseAndRun(int argc, char** argv) {
    CLI::App app(
        "Time master or slave of IEEE 802.1AS on one Ethernet interface, and a check of captures",
        "tsyn");
    app.require_subcommand(1);
    app.failure_message(oneLine);
    tsyn::RunOptions options;
    CLI::App* const run = addCommand(
        app, "run",
        "Run a master or a slave; one status line a second on standard output, the library's "
        "log on standard error");
    tsyn::addRunOptions(*run, options);
    tsyn::CheckOptions checkOptions;
    CLI::App* const check = addCommand(
        app, "check",
        "Check the PTP messages of a capture: AUTOSAR CRCs, TLV lengths, sequence ids; status 0: "
        "all right, 1: findings, 2: unreadable");
    tsyn::addCheckOptions(*check, checkOptions);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        constexpr int kWrongUse = 2;
        return app.exit(error) == 0 ? 0 : kWrongUse;
    }
    return check->parsed() ? tsyn::checkCommand(checkOptions) : tsyn::runCommand(options);
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
