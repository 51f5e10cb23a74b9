#pragma once

#include <optional>
#include <string>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

/** Mean and deviation of values one after the other. */
class Spread {
public:
    void add(double value);
    unsigned int count() const { return count_; }
    double mean() const { return count_ == 0 ? 0.0 : sum_ / count_; }
    double deviation() const;

private:
    unsigned int count_ = 0;
    double first_ = 0.0;
    double sum_ = 0.0;
    double sumOfSquares_ = 0.0; /**< of the distances to the first: the values are far from 0 */
};

/** What the Syncs of one second did, in the words of ptp4l: rms and most of how far each of them
 *  moved the time, the rate in ppb and the delay with their deviations. */
class SyncStatistics {
public:
    /** Takes a look in; one that shows no new Sync changes nothing. */
    void add(const Look& look);

    /** "rms   12 max   30 freq  -1234 +/-   5 delay   100 +/-   1", and starts a new second.
     *  Nothing without a Sync. */
    std::optional<std::string> take();

private:
    std::optional<Look> before_;
    double squares_ = 0.0;
    double most_ = 0.0;
    Spread rate_;
    Spread delay_;
    unsigned int moves_ = 0;
};

}  // namespace tsyn
