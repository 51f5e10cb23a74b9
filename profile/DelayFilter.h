#pragma once

#include "ptp/LinkDelay.h"

/** Mean link delay of several exchanges with the neighbour. Reads no clock; one caller at a time.
 */
class DelayFilter {
public:
    /** What is known of the neighbour's rate from elsewhere: rate over own, less 1. */
    struct Rate {
        double slope;
        double doubt;
    };

    /** Takes an exchange; rate: used as long as one exchange alone tells none. False when its times
     *  are impossible for a cable: it is not used. */
    bool take(const PdelayTimes& times, const Rate& rate);

    /** Evaluates one exchange alone again by a better rate. False when nothing changes. */
    bool reconsider(const Rate& rate);

    bool isKnown() const { return count_ > 0; }

    /** Never negative. */
    long long delayNs() const;

    /** By how much the delay may be wrong. */
    double doubt() const { return doubt_; }

    /** Neighbour rate over own rate, less 1. */
    double slope() const { return slope_; }

private:
    static constexpr int kCapacity = 12;

    void refresh();
    void measure(double* delays) const;
    void average(const double* delays);
    void keepLast(int count);
    double delayOf(const PdelayTimes& times) const;

    PdelayTimes exchanges_[kCapacity] = {};
    int count_ = 0;
    Rate rateBefore_ = {0, 0};
    double slope_ = 0;
    double delay_ = 0;
    double doubt_ = 0;
};
