#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/Owner.h"
#include "tools/tsyn/daemon/RecordSource.h"
#include "tools/tsyn/feed/FeedCommand.h"
#include "tools/tsyn/feed/SampleSink.h"

namespace tsyn {

/** Looks at a daemon time and again, and delivers a sample soon after a Sync when one is due. Says
 *  on standard error when samples begin and why they end, once each time. */
class Feeder {
public:
    Feeder(const FeedOptions& options, RecordSource& source, SampleSink& sink);

    void look();

private:
    void judge(const Look& look, bool isNewSync);
    void tell(const std::string& state);

    RecordSource& source_;
    SampleSink& sink_;
    SampleLimits limits_;
    double periodS_;
    DaemonState daemon_;
    OwnerFinder finder_;
    std::optional<Look> before_;
    double dueS_ = 0.0;
    std::optional<std::string> told_;
};

}  // namespace tsyn
