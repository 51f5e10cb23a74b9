#pragma once

#include "tools/tsyn/Command.h"
#include "tools/tsyn/daemon/RecordSource.h"

namespace tsyn {

/** What `tsyn status` was asked to show. */
struct StatusOptions {
    SourceOptions source;
    bool json = false;
    double staleAfterS = 1.5;
    double timeoutS = 3.0;
    int utcOffsetS = 37;
};

Command addStatusCommand(CLI::App& program);

/** One look. Returns the exit status that the help lists. */
int statusCommand(const StatusOptions& options);

}  // namespace tsyn
