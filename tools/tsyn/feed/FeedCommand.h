#pragma once

#include <string>

#include "tools/tsyn/Command.h"
#include "tools/tsyn/feed/ClockSample.h"

namespace tsyn {

/** What `tsyn feed` was asked to do. */
struct FeedOptions {
    std::string interfaceName;
    std::string chronySocket; /**< empty: the NTP shared memory */
    int ntpUnit = 0;
    double ratePerS = 1.0;
    bool wait = false;
    SampleLimits limits;
};

Command addFeedCommand(CLI::App& program);

/** Feeds until it is ended. Returns 0, or 1 when it could not begin. */
int feedCommand(const FeedOptions& options);

}  // namespace tsyn
