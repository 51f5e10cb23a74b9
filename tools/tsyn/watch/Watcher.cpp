#include "tools/tsyn/watch/Watcher.h"

#include "tools/tsyn/daemon/Counters.h"

namespace tsyn {
namespace {

/** For as long as that, a new beginning is pointed out. */
constexpr double kNoticeS = 10.0;

}  // namespace

Watcher::Watcher(const WatchOptions& options)
    : source_(makeSource(options.source)),
      startS_(monotonicNowS()),
      daemon_(true, options.staleAfterS),
      staleAfterS_(options.staleAfterS) {}

void Watcher::look() {
    const std::optional<Look> look = source_->look(0.0);
    isFound_ = look.has_value();
    hasBegunAnew_ = false;
    if (look) {
        take(*look);
    } else {
        perSecond_.assign(perSecond_.size(), 0.0);
        history_.addNothing();
    }
}

void Watcher::take(const Look& look) {
    if (!hasDaemon_) {
        daemon_ = DaemonState(source_->sharesClock(), staleAfterS_);
        history_.add(nullptr, look);
        perSecond_.assign(countersOf(look).size(), 0.0);
    } else {
        const Look before = daemon_.latest();
        hasBegunAnew_ = beganAnew(before, look);
        perSecond_ = countsPerSecond(before, look);
        history_.add(hasBegunAnew_ ? nullptr : &before, look);
    }
    if (hasBegunAnew_) {
        anewS_ = look.monotonicS;
    }
    daemon_.update(look);
    hasDaemon_ = true;
    history_.setBound(daemon_.boundNs());
    owner_ = finder_.find(look, source_->segmentFile());
}

std::string Watcher::note() const {
    if (!isFound_) {
        return "waiting: " + problem();
    }
    if (hasEnded(owner_, daemon_)) {
        return endedText(owner_);
    }
    return daemon_.latest().monotonicS - anewS_ < kNoticeS ? "the daemon began anew" : "";
}

}  // namespace tsyn
