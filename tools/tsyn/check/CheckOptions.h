#pragma once

#include <string>

#include "tools/tsyn/Command.h"
#include "tools/tsyn/check/FollowUpTlvs.h"

namespace tsyn {

/** What `tsyn check` was asked to do. */
struct CheckOptions {
    std::string file;
    std::string dataIdList;
    unsigned int leastFrames = 1;
    bool json = false;

    DataIdList dataIds() const;
};

/** Declares the options of `tsyn check` on its subcommand; parsing fills the record. */
void addCheckOptions(CLI::App& command, CheckOptions& options);

Command addCheckCommand(CLI::App& program);

}  // namespace tsyn
