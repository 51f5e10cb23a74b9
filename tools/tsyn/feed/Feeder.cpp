#include "tools/tsyn/feed/Feeder.h"

#include <cstdio>

namespace tsyn {

Feeder::Feeder(const FeedOptions& options, RecordSource& source, SampleSink& sink)
    : source_(source),
      sink_(sink),
      limits_(options.limits),
      periodS_(1.0 / options.ratePerS),
      daemon_(true, options.limits.staleAfterS) {}

void Feeder::look() {
    const std::optional<Look> look = source_.look(0.0);
    if (!look) {
        before_.reset();
        tell("waiting: " + source_.problem());
        return;
    }
    daemon_.update(*look);
    // Right after a Sync nothing is extrapolated, and the clock was not set since.
    const bool isNewSync = before_ && before_->segment == look->segment &&
                           before_->record.localTime != look->record.localTime &&
                           !wasSet(*before_, *look);
    before_ = look;
    if (look->monotonicS >= dueS_) {
        judge(*look, isNewSync);
    }
}

void Feeder::judge(const Look& look, bool isNewSync) {
    const Owner& owner = finder_.find(look, source_.segmentFile());
    const std::string obstacle = sampleObstacle(daemon_, owner, limits_);
    if (!obstacle.empty()) {
        tell("no samples: " + obstacle);
        dueS_ = look.monotonicS + periodS_;
        return;
    }
    const std::optional<ClockSample> sample = sampleOf(daemon_, limits_);
    if (!isNewSync || !sample) {
        return;
    }
    const std::string lost = sink_.deliver(*sample);
    tell(lost.empty() ? "samples go to " + sink_.name() : "samples are lost: " + lost);
    // From the time it was due, as long as that keeps up, so that the rate is the one asked for.
    dueS_ = dueS_ + periodS_ > look.monotonicS ? dueS_ + periodS_ : look.monotonicS + periodS_;
}

void Feeder::tell(const std::string& state) {
    if (told_ != state) {
        told_ = state;
        std::fprintf(stderr, "tsyn: %s: %s\n", source_.name().c_str(), state.c_str());
    }
}

}  // namespace tsyn
