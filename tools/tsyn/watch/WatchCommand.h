#pragma once

#include "tools/tsyn/Command.h"
#include "tools/tsyn/daemon/RecordSource.h"

namespace tsyn {

/** What `tsyn watch` was asked to show. */
struct WatchOptions {
    SourceOptions source;
    bool json = false;
    bool summary = false;
    bool ascii = false;
    double durationS = 0.0; /**< 0: until it is ended */
    double staleAfterS = 1.5;
    int utcOffsetS = 37;
};

Command addWatchCommand(CLI::App& program);

/** Shows a daemon until it is ended. Returns 0, or 1 when nobody reads its output any more. */
int watchCommand(const WatchOptions& options);

}  // namespace tsyn
