#pragma once

#include "ptp/LinkDelay.h"

/** Mean link delay of several exchanges with the neighbour. Reads no clock; one caller at a time. */
class DelayFilter {
public:
    /** Takes an exchange; rateBefore: neighbour over own rate as long as one exchange tells none.
     *  False when its times are impossible for a cable: it is not used. */
    bool take(const PdelayTimes& times, double rateBefore);

    bool isKnown() const { return count_ > 0; }

    /** Never negative. */
    long long delayNs() const;

    /** By how much the delay may be wrong. */
    double doubt() const { return doubt_; }

    /** Neighbour rate over own rate, less 1. */
    double slope() const { return slope_; }

private:
    static constexpr int kCapacity = 8;

    void refresh(double rateBefore);
    void measure(double* delays) const;
    void average(const double* delays);
    void keepLast(int count);
    double delayOf(const PdelayTimes& times) const;

    PdelayTimes exchanges_[kCapacity] = {};
    int count_ = 0;
    double slope_ = 0;
    double delay_ = 0;
    double doubt_ = 0;
};
