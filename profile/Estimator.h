#pragma once

/* Lines through readings of two clocks. Everything here is computed from its arguments alone; all
 * times are ns, x and y of the two clocks' own. */
namespace estimator {

/** Readings that make a line, at most: two seconds of Syncs. */
inline constexpr int kCapacity = 16;

/** Bound of a believable rate: clocks of cards and hosts are within 100 ppm. */
inline constexpr double kLargestSlope = 250e-6;

/** A rate goes on changing while nothing is heard: by 0.25 ppm each second. */
inline constexpr double kWanderPerNs = 0.25e-15;

/** Fewer readings show no noise, and half of a line needs as many to show whether it bends. */
inline constexpr int kReliableCount = 3;
inline constexpr int kFewestOfBent = 4;

/** Both clocks at one instant. doubt: by how much y may be wrong by the way that it was read. */
struct Reading {
    unsigned long long x;
    unsigned long long y;
    double doubt;
};

/** y0 + lift + (x - x0) * (1 + slope). */
struct Line {
    unsigned long long x0;
    unsigned long long y0;
    double lift;
    double slope;
    double residual;    ///< of the readings that made it, at most
    double tightest;    ///< y is within this at x0
    double slopeDoubt;  ///< by how much the slope may be wrong
    int leftOut;        ///< of the latest readings, those that lie too far from it

    /** y at x, and x at y, rounded. */
    unsigned long long at(unsigned long long x) const;
    unsigned long long inverse(unsigned long long y) const;

    /** How far above the line a reading lies. */
    double above(const Reading& reading) const;
};

/** The line through count readings, the latest last. Those that lie far from the line through most
 *  of them have no part in it. The slope that is handed over counts for what it is worth beside
 *  theirs; of one alone, it is the line's. */
Line fit(const Reading* readings, int count, double slopeBefore, double slopeDoubtBefore);

enum class Verdict {
    kTaken,
    kRepeated,  ///< as old as the one before, or nearly so
    kRefused,   ///< no rate or noise explains it
    kFollowed   ///< as the ones before that were refused: what they tell is believed from now on
};

/** Follows one clock over another. */
class Tracker {
public:
    Verdict take(const Reading& reading);

    /** Whether take would accept it as one of the line. */
    bool fits(const Reading& reading) const;

    /** Begins a line with the last reading and this one: the rate has changed. */
    void bend(const Reading& reading);

    /** One of the clocks was set: all readings move along. */
    void shift(unsigned long long byX, unsigned long long byY);

    void forget();

    /** The line; needs one reading. */
    const Line& line() const { return line_; }
    bool isEmpty() const { return count_ == 0; }
    const Reading& last() const { return readings_[count_ - 1]; }

    /** The rate stands on enough readings to be relied on. */
    bool isReliable() const;

    /** The rate is known at all. */
    bool hasRate() const { return count_ >= 2 || isReliable(); }

    /** Readings refused since the last one that was taken. */
    int refusedInARow() const { return refused_; }

    /** What a followed reading lies above the line before it. */
    double lastStep() const { return lastStep_; }

private:
    static Line fitLatest(const Reading* readings, int count, double slope, double slopeDoubt);
    Verdict refuse(const Reading& reading);
    Verdict replaceLast(const Reading& reading);
    double medianInterval() const;
    double shortestInterval() const;
    void append(const Reading& reading, double apart);
    void refit();
    void startAnew(const Reading* readings, int count, double moreSlopeDoubt);
    double tolerance(const Reading& reading) const;

    static constexpr int kCandidates = 3;

    Reading readings_[kCapacity] = {};
    int count_ = 0;
    Reading candidates_[kCandidates] = {};
    int candidateCount_ = 0;
    int refused_ = 0;
    Line line_ = {0, 0, 0, 0, 0, 0, kLargestSlope, 0};
    double slopeBefore_ = 0;
    double slopeDoubtBefore_ = kLargestSlope;
    double shortestBefore_ = 0;
    double lastStep_ = 0;
};

}  // namespace estimator
