#include "profile/TimeKeeper.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/Extended80.h"
#include "base/ptptime.h"
#include "timebase/TimeConversion.h"

using estimator::Reading;
using estimator::Verdict;

namespace {

constexpr double kFirstIntervalNs = 125e6;
constexpr double kShortestIntervalNs = 5e6;
constexpr double kLongestIntervalNs = 5e9;
constexpr double kSilentIntervals = 3;
constexpr long long kVoidAfterNs = 60 * static_cast<long long>(kNsPerSecond);
constexpr long long kForgottenAfterNs = 10 * kVoidAfterNs;

/** What an oscillator's rate may change by beside what the line tells of it. */
constexpr double kWander = 100e-9;
/** Roundings of the record and of its conversion. */
constexpr double kRounding = 4;
constexpr double kRoundedDown = 2;
/** A pair that is off by more leaves two times to choose from, not one with a bound. */
constexpr double kMostDoubt = 1e6;
/** Brackets much wider than usual were interrupted: they say less than the line does. */
constexpr double kWideBracket = 4;
constexpr double kAlwaysNarrow = 300;

/** Time that would have to stand still for long is set instead, and the step is announced. */
constexpr long long kLongestSlewNs = 20000;
constexpr double kSteepestSlew = 200e-6;

unsigned int saturated(double value) {
    constexpr double kMost = std::numeric_limits<unsigned int>::max();
    return value >= kMost ? std::numeric_limits<unsigned int>::max()
                          : static_cast<unsigned int>(std::ceil(std::max(value, 0.0)));
}

gPtpTimeDataStruct recordOf(const TimeLine& line) {
    gPtpTimeDataStruct record{};
    storeLine(record, line);
    return record;
}

}  // namespace

/** Where the time shall be. */
struct TimeKeeper::Target {
    unsigned long long timeNs;
    double masterSlope;
    double phcSlope;
};

/** How the time gets there from where it was shown, which it never does backwards. */
struct TimeKeeper::Course {
    unsigned long long timeNs;  ///< now
    double ahead;               ///< of the target
    double slowing;             ///< of the rate, by which it meets the target
    bool isStep;
    bool goesOn;  ///< on the line of the last Sync
};

bool TimeKeeper::takeClocks(const Reading& reading) {
    if (!phcOverSystem_.fits(reading)) {
        return false;
    }
    const bool isWide =
        !phcOverSystem_.isEmpty() &&
        reading.doubt > kWideBracket * phcOverSystem_.line().tightest + kAlwaysNarrow &&
        static_cast<double>(signedDiff(reading.x, phcOverSystem_.last().x)) < kLongestIntervalNs;
    if (!isWide) {
        phcOverSystem_.take(reading);
    }
    return true;
}

bool TimeKeeper::agree(const Reading& a, const Reading& b) const {
    const long long apart = signedDiff(b.y, a.y) - signedDiff(b.x, a.x);
    return std::fabs(static_cast<double>(apart)) <= a.doubt + b.doubt + 1000;
}

void TimeKeeper::followClocks(const Reading& reading) {
    const double above = phcOverSystem_.line().above(reading);
    const double elapsed = static_cast<double>(signedDiff(reading.x, phcOverSystem_.last().x));
    if (elapsed > 0 && std::fabs(above) <= estimator::kLargestSlope * elapsed) {
        phcOverSystem_.bend(reading);
        return;
    }
    const auto step = static_cast<unsigned long long>(toS64(static_cast<long double>(above)));
    phcOverSystem_.shift(0, step);
    phcOverSystem_.take(reading);
    if (isMaster_) {
        stepFollows_ = true;
        return;
    }
    masterOverPhc_.shift(step, 0);
    lastPairPhcNs_ += step;
    shown_.localTime += step;
    shown_.systemOffset -= static_cast<long long>(step);
    shown_.masterOffset += static_cast<long long>(step);
}

void TimeKeeper::shiftSystem(long long byNs) {
    phcOverSystem_.shift(static_cast<unsigned long long>(byNs), 0);
    lastPairSystemNs_ += static_cast<unsigned long long>(byNs);
    shown_.systemOffset += byNs;
}

void TimeKeeper::noteInterval(const Reading& reading) {
    if (lastPairPhcNs_ == 0) {
        return;
    }
    const double apart = std::clamp(static_cast<double>(signedDiff(reading.x, lastPairPhcNs_)),
                                    kShortestIntervalNs, kLongestIntervalNs);
    const bool isFirst = intervalNs_ == 0 || apart < intervalNs_ / kSilentIntervals;
    intervalNs_ = isFirst ? apart : intervalNs_ + (apart - intervalNs_) / 8;
}

Verdict TimeKeeper::takePair(const Reading& reading) {
    const double above =
        masterOverPhc_.isEmpty() ? 0 : std::fabs(masterOverPhc_.line().above(reading));
    const Verdict verdict = masterOverPhc_.take(reading);
    if (verdict == Verdict::kTaken) {
        noteInterval(reading);
    }
    pendingDoubt_ = verdict == Verdict::kRefused ? above : 0;
    stepFollows_ = stepFollows_ || verdict == Verdict::kFollowed;
    if (verdict == Verdict::kTaken || verdict == Verdict::kFollowed) {
        hasNewPair_ = true;
        lastPairPhcNs_ = reading.x;
        lastPairSystemNs_ = phcOverSystem_.isEmpty() ? 0 : phcOverSystem_.line().inverse(reading.x);
    }
    return verdict;
}

void TimeKeeper::beMaster(long long aheadNs) {
    stepFollows_ = stepFollows_ || aheadNs != aheadNs_;
    isMaster_ = true;
    aheadNs_ = aheadNs;
}

bool TimeKeeper::hasTime() const {
    return !phcOverSystem_.isEmpty() && (isMaster_ || masterOverPhc_.hasRate());
}

unsigned char TimeKeeper::state(unsigned long long systemNowNs, const Delay& delay) const {
    if (isMaster_) {
        return phcOverSystem_.isEmpty() ? TSYN_STATE_ACQUIRING : TSYN_STATE_SYNCHRONISED;
    }
    if (masterOverPhc_.isEmpty()) {
        return TSYN_STATE_NO_MASTER;
    }
    const long long silentNs = signedDiff(systemNowNs, lastPairSystemNs_);
    if (silentNs > kForgottenAfterNs) {
        return TSYN_STATE_NO_MASTER;
    }
    if (pendingDoubt_ > kMostDoubt || !hasTime() || !masterOverPhc_.isReliable() ||
        !delay.isKnown || masterOverPhc_.refusedInARow() >= 2) {
        return TSYN_STATE_ACQUIRING;
    }
    if (silentNs > kVoidAfterNs) {
        return TSYN_STATE_LOST;
    }
    return isSilent(systemNowNs) ? TSYN_STATE_HOLDOVER : TSYN_STATE_SYNCHRONISED;
}

double TimeKeeper::interval() const {
    return intervalNs_ == 0 ? kFirstIntervalNs : intervalNs_;
}

bool TimeKeeper::isSilent(unsigned long long systemNowNs) const {
    const long long silentNs = signedDiff(systemNowNs, lastPairSystemNs_);
    return !isMaster_ && static_cast<double>(silentNs) > kSilentIntervals * interval();
}

TimeKeeper::Target TimeKeeper::target(unsigned long long systemNowNs, const Delay& delay) const {
    const estimator::Line& system = phcOverSystem_.line();
    const unsigned long long phcNs = system.at(systemNowNs);
    if (isMaster_) {
        return {phcNs + static_cast<unsigned long long>(aheadNs_), 0, system.slope};
    }
    const estimator::Line& master = masterOverPhc_.line();
    return {master.at(phcNs) + static_cast<unsigned long long>(delay.ns), master.slope,
            system.slope};
}

/** While nothing is heard, the doubt of the master's rate counts twice: nobody sees any more
 *  whether it still goes as it did. */
double TimeKeeper::growth(unsigned long long systemNowNs) const {
    const double system = phcOverSystem_.line().slopeDoubt;
    if (isMaster_) {
        return system + kWander;
    }
    const double master = masterOverPhc_.line().slopeDoubt + kWander;
    return system + (isSilent(systemNowNs) ? 2 * master : master);
}

double TimeKeeper::doubtOf(unsigned long long systemNowNs, const Delay& delay) const {
    const estimator::Line& system = phcOverSystem_.line();
    const double sinceClocks =
        std::fabs(static_cast<double>(signedDiff(systemNowNs, phcOverSystem_.last().x)));
    const double doubt =
        system.tightest + system.slopeDoubt * sinceClocks + kRounding + pendingDoubt_;
    if (isMaster_) {
        return doubt + kWander * sinceClocks;
    }
    // Stamps that are rounded down are wrong by half of what they scatter.
    const double atPair = doubt + kRoundedDown * masterOverPhc_.line().residual + delay.doubt;
    if (isSilent(systemNowNs)) {
        return atPair;  // from there on it grows
    }
    const double sincePair =
        std::fabs(static_cast<double>(signedDiff(systemNowNs, lastPairSystemNs_)));
    return atPair + (masterOverPhc_.line().slopeDoubt + kWander) * sincePair;
}

/** A slave's line begins at its last Sync, where deployed readers expect it; a master's begins now,
 *  so that its PHC remains its time. */
void TimeKeeper::begin(TimeLine& line, unsigned long long systemNowNs,
                       unsigned long long timeNs) const {
    if (isMaster_) {
        line.localTime = timeNs - static_cast<unsigned long long>(aheadNs_);
        line.systemOffset = signedDiff(systemNowNs, line.localTime);
        line.masterOffset = signedDiff(line.localTime, timeNs);
        return;
    }
    const unsigned long long anchorSystemNs = phcOverSystem_.line().inverse(lastPairPhcNs_);
    const long long elapsed = signedDiff(systemNowNs, anchorSystemNs);
    const long double gain =
        static_cast<long double>(elapsed) * (line.phcRate * line.masterRate - 1);
    const unsigned long long anchorTimeNs = timeNs - static_cast<unsigned long long>(elapsed) -
                                            static_cast<unsigned long long>(toS64(gain));
    line.localTime = lastPairPhcNs_;
    line.systemOffset = signedDiff(anchorSystemNs, lastPairPhcNs_);
    line.masterOffset = signedDiff(lastPairPhcNs_, anchorTimeNs);
}

/** What was true at the last Sync stays as it was told; all that the clocks tell since is when, by
 *  the system clock, that Sync was. */
void TimeKeeper::goOn(TimeLine& line, unsigned long long systemNowNs,
                      unsigned long long timeNs) const {
    line.localTime = shown_.localTime;
    line.masterOffset = shown_.masterOffset;
    const unsigned long long anchorTimeNs =
        line.localTime - static_cast<unsigned long long>(line.masterOffset);
    const long double rate = line.phcRate * line.masterRate;
    const long long elapsed =
        toS64(static_cast<long double>(signedDiff(timeNs, anchorTimeNs)) / rate);
    line.systemOffset =
        signedDiff(systemNowNs - static_cast<unsigned long long>(elapsed), line.localTime);
}

/** The line with the course's time now. The rate of the master is that of the last Sync: what has
 *  to be slowed, the readers of the system clock are. */
TimeLine TimeKeeper::lineOf(unsigned long long systemNowNs, const Target& goal,
                            const Course& way) const {
    TimeLine line{};
    line.phcRate = 1 + static_cast<long double>(goal.phcSlope - way.slowing);
    line.masterRate = 1 + static_cast<long double>(goal.masterSlope);
    if (way.goesOn) {
        goOn(line, systemNowNs, way.timeNs);
    } else {
        begin(line, systemNowNs, way.timeNs);
    }
    if (hasShown_ && !way.isStep) {
        // Readers truncate: what that takes away must not make the time go back, either.
        const long long back =
            currentTimeNs(shown_, systemNowNs) - currentTimeNs(recordOf(line), systemNowNs);
        if (back > 0) {
            (isMaster_ || way.goesOn ? line.systemOffset : line.masterOffset) -= back;
        }
    }
    return line;
}

/** While the master is silent nobody knows when the next look comes, and a slope that is left to
 *  itself would lead further below the target than the time was above it. */
TimeKeeper::Course TimeKeeper::course(unsigned long long systemNowNs, const Target& goal) const {
    Course way{goal.timeNs, 0, 0, stepFollows_, false};
    if (!hasShown_ || way.isStep) {
        return way;
    }
    const auto shownNs = static_cast<unsigned long long>(currentTimeNs(shown_, systemNowNs));
    const long long aheadNs = signedDiff(shownNs, goal.timeNs);
    way.isStep = aheadNs > kLongestSlewNs;
    way.goesOn = !way.isStep && !isMaster_ && !hasNewPair_;
    if (aheadNs > 0 && !way.isStep) {
        way.ahead = static_cast<double>(aheadNs);
        way.slowing = isSilent(systemNowNs) ? 0 : std::min(way.ahead / interval(), kSteepestSlew);
        way.timeNs = shownNs;
    }
    return way;
}

/** The bound of a line with which that of the one before goes on: while nothing is heard, nothing
 *  is known better. */
unsigned int TimeKeeper::atLeastAsWide(const Publication& told,
                                       unsigned long long systemNowNs) const {
    const auto age = [systemNowNs](unsigned long long localTime, long long systemOffset) {
        const unsigned long long anchor = localTime + static_cast<unsigned long long>(systemOffset);
        return 1e-9 * std::fabs(static_cast<double>(signedDiff(systemNowNs, anchor)));
    };
    const double shown =
        shownBoundNs_ + shownGrowthPpb_ * age(shown_.localTime, shown_.systemOffset);
    const double grown = told.boundGrowthPpb * age(told.line.localTime, told.line.systemOffset);
    return std::max(told.boundNs, saturated(shown - grown));
}

TimeKeeper::Publication TimeKeeper::publish(unsigned long long systemNowNs, const Delay& delay) {
    const Target goal = target(systemNowNs, delay);
    const Course way = course(systemNowNs, goal);
    Publication told{};
    told.line = lineOf(systemNowNs, goal, way);
    told.isStep = way.isStep && hasShown_;
    told.state = state(systemNowNs, delay);
    told.boundNs = saturated(doubtOf(systemNowNs, delay) + way.ahead);
    told.boundGrowthPpb = saturated((growth(systemNowNs) + way.slowing) * 1e9);
    told.voidAfterNs =
        static_cast<long long>(isMaster_ ? systemNowNs : lastPairSystemNs_) + kVoidAfterNs;
    if (way.goesOn) {
        told.boundNs = atLeastAsWide(told, systemNowNs);
    }
    shown_ = recordOf(told.line);
    shownBoundNs_ = told.boundNs;
    shownGrowthPpb_ = told.boundGrowthPpb;
    hasShown_ = true;
    hasNewPair_ = false;
    stepFollows_ = false;
    return told;
}
