#include "tools/tsyn/watch/SyncStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/watch/History.h"

namespace tsyn {

void Spread::add(double value) {
    first_ = count_ == 0 ? value : first_;
    ++count_;
    sum_ += value;
    sumOfSquares_ += (value - first_) * (value - first_);
}

double Spread::deviation() const {
    if (count_ == 0) {
        return 0.0;
    }
    const double meanDistance = mean() - first_;
    return std::sqrt(std::max(0.0, sumOfSquares_ / count_ - meanDistance * meanDistance));
}

void SyncStatistics::add(const Look& look) {
    constexpr double kPpbOfPpm = 1000.0;
    if (before_ && beganAnew(*before_, look)) {
        before_.reset();
    }
    const std::optional<double> ppm = ratePpm(look.record);
    if (!ppm || (before_ && look.record.localTime == before_->record.localTime)) {
        return;
    }
    const std::optional<double> moved = before_ ? movedNs(*before_, look) : std::nullopt;
    before_ = look;
    if (!moved) {
        return;
    }
    ++moves_;
    squares_ += *moved * *moved;
    most_ = std::max(most_, std::fabs(*moved));
    rate_.add(*ppm * kPpbOfPpm);
    delay_.add(static_cast<double>(look.record.linkDelay));
}

std::optional<std::string> SyncStatistics::take() {
    if (moves_ == 0) {
        return {};
    }
    char text[160];
    std::snprintf(text, sizeof text,
                  "rms %4.0f max %4.0f freq %+6.0f +/- %3.0f delay %5.0f +/- %3.0f",
                  std::sqrt(squares_ / moves_), most_, rate_.mean(), rate_.deviation(),
                  delay_.mean(), delay_.deviation());
    squares_ = 0.0;
    most_ = 0.0;
    moves_ = 0;
    rate_ = {};
    delay_ = {};
    return std::string(text);
}

}  // namespace tsyn
