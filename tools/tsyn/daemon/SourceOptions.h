#pragma once

#include "tools/tsyn/daemon/RecordSource.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tsyn {

/** Declares the interface of a daemon on this machine. */
CLI::Option* addInterfaceOption(CLI::App& command, std::string& interfaceName);

/** Declares the interface and --spy, of which a command takes one. */
void addSourceOptions(CLI::App& command, SourceOptions& options);

/** Declares what a state and a time are derived with; the defaults are those of the variables. */
void addLookOptions(CLI::App& command, double& staleAfterS, int& utcOffsetS);

}  // namespace tsyn
