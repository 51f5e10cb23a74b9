#pragma once

#include <optional>

namespace tsyn {

/** When a record is looked at next, and whether a look becomes a sample: either so many times a
 *  second, or once for each Sync that shows, and once a second while none does. Times in seconds of
 *  a clock that is never set. */
class LookTimes {
public:
    /** Nothing: with each Sync. */
    explicit LookTimes(std::optional<double> rateHz) : rateHz_(rateHz) {}

    /** After a look. hasChanged: a Sync showed since the last one. */
    bool isSample(double nowS, bool hasChanged);

    double nextS(double nowS) const;

    /** For how long no Sync has shown, or since the first look. */
    double sinceChangeS(double nowS) const;

    /** A Sync has shown between two looks. */
    bool hasSeenChange() const { return changeS_.has_value(); }

private:
    double betweenChangesS(double nowS) const;

    std::optional<double> rateHz_;
    std::optional<double> firstS_;
    std::optional<double> sampleS_;
    std::optional<double> changeS_;
    std::optional<double> intervalS_;
};

}  // namespace tsyn
