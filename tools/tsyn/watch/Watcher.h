#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/Owner.h"
#include "tools/tsyn/daemon/RecordSource.h"
#include "tools/tsyn/watch/History.h"
#include "tools/tsyn/watch/WatchCommand.h"

namespace tsyn {

/** Follows one daemon with a look each second, through its ends and restarts. */
class Watcher {
public:
    explicit Watcher(const WatchOptions& options);

    /** The look of this second. */
    void look();

    std::string name() const { return source_->name(); }
    double startS() const { return startS_; }

    /** Whether the latest look found a record; otherwise problem() tells why there is none. */
    bool isFound() const { return isFound_; }
    const std::string& problem() const { return source_->problem(); }

    /* Of the latest record that was found. */
    bool hasDaemon() const { return hasDaemon_; }
    const DaemonState& daemon() const { return daemon_; }
    const Owner& owner() const { return owner_; }
    const std::vector<double>& perSecond() const { return perSecond_; }
    const History& history() const { return history_; }

    /** The daemon that is shown is another one, or began anew, with the latest look. */
    bool hasBegunAnew() const { return hasBegunAnew_; }

    /** What the user should know beside the values; mostly empty. */
    std::string note() const;

private:
    void take(const Look& look);

    std::unique_ptr<RecordSource> source_;
    double startS_;
    DaemonState daemon_;
    OwnerFinder finder_;
    Owner owner_;
    std::vector<double> perSecond_;
    History history_;
    double anewS_ = -1e9;
    bool hasBegunAnew_ = false;
    bool isFound_ = false;
    bool hasDaemon_ = false;
    double staleAfterS_;
};

}  // namespace tsyn
