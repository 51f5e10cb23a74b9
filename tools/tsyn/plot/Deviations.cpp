#include "tools/tsyn/plot/Deviations.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tsyn {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
/** Fewer differences tell nothing of a spread. */
constexpr std::size_t kFewestTerms = 3;
/** Longer grids than this are of instants that are no times of one recording. */
constexpr double kMostSlots = 2e7;
constexpr double kUsualPart = 0.25;
constexpr std::size_t kPresentOf4 = 3;

/** The mean of the intervals that are near their median, which lost samples do not move. */
double usualInterval(const std::vector<PhaseRun>& runs) {
    std::vector<double> intervals;
    for (const PhaseRun& run : runs) {
        for (std::size_t i = 1; i < run.atS.size(); ++i) {
            intervals.push_back(run.atS[i] - run.atS[i - 1]);
        }
    }
    if (intervals.empty()) {
        return 0.0;
    }
    const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
    std::nth_element(intervals.begin(), middle, intervals.end());
    const double median = *middle;
    double sum = 0.0;
    double count = 0.0;
    for (const double interval : intervals) {
        if (std::fabs(interval - median) <= kUsualPart * median) {
            sum += interval;
            count += 1.0;
        }
    }
    return sum / count;
}

std::vector<double> onGrid(const PhaseRun& run, double stepS) {
    const double spanS = run.atS.back() - run.atS.front();
    const double driftNs = spanS > 0.0 ? (run.phaseNs.back() - run.phaseNs.front()) / spanS : 0.0;
    if (!(spanS >= 0.0 && spanS / stepS < kMostSlots)) {
        return {};
    }
    std::vector<double> grid(static_cast<std::size_t>(std::lround(spanS / stepS)) + 1, kMissing);
    for (std::size_t i = 0; i < run.atS.size(); ++i) {
        const double sinceS = run.atS[i] - run.atS.front();
        const auto slot = static_cast<std::size_t>(std::lround(sinceS / stepS));
        grid[std::min(slot, grid.size() - 1)] =
            run.phaseNs[i] - run.phaseNs.front() - driftNs * sinceS;
    }
    return grid;
}

struct Squares {
    double sum = 0.0;
    std::size_t terms = 0;

    void add(double difference) {
        if (!std::isnan(difference)) {
            sum += difference * difference;
            ++terms;
        }
    }
    double mean() const { return sum / static_cast<double>(terms); }
};

Squares secondDifferences(const EvenPhase& phase, std::size_t m) {
    Squares squares;
    for (const std::vector<double>& x : phase.runs) {
        for (std::size_t i = 0; i + 2 * m < x.size(); ++i) {
            squares.add(x[i + 2 * m] - 2.0 * x[i + m] + x[i]);
        }
    }
    return squares;
}

/** Sums from the beginning, so that every mean costs two looks. */
class Means {
public:
    explicit Means(const std::vector<double>& x) : sums_(1, 0.0), counts_(1, 0) {
        for (const double value : x) {
            const bool isThere = !std::isnan(value);
            sums_.push_back(sums_.back() + (isThere ? value : 0.0));
            counts_.push_back(counts_.back() + (isThere ? 1U : 0U));
        }
    }

    double mean(std::size_t from, std::size_t m) const {
        const std::size_t count = counts_[from + m] - counts_[from];
        return 4 * count >= kPresentOf4 * m
                   ? (sums_[from + m] - sums_[from]) / static_cast<double>(count)
                   : kMissing;
    }

private:
    std::vector<double> sums_;
    std::vector<std::size_t> counts_;
};

Squares differencesOfMeans(const std::vector<Means>& means, const EvenPhase& phase, std::size_t m) {
    Squares squares;
    for (std::size_t run = 0; run < means.size(); ++run) {
        const Means& x = means[run];
        for (std::size_t i = 0; i + 3 * m <= phase.runs[run].size(); ++i) {
            squares.add(x.mean(i + 2 * m, m) - 2.0 * x.mean(i + m, m) + x.mean(i, m));
        }
    }
    return squares;
}

std::size_t longestRun(const EvenPhase& phase) {
    std::size_t longest = 0;
    for (const std::vector<double>& run : phase.runs) {
        longest = std::max(longest, run.size());
    }
    return longest;
}

}  // namespace

EvenPhase evenPhase(const std::vector<PhaseRun>& runs) {
    EvenPhase phase;
    phase.stepS = usualInterval(runs);
    for (const PhaseRun& run : runs) {
        if (!run.atS.empty() && phase.stepS > 0.0) {
            phase.runs.push_back(onGrid(run, phase.stepS));
        }
    }
    return phase;
}

std::vector<Deviation> allanDeviation(const EvenPhase& phase) {
    std::vector<Deviation> result;
    for (std::size_t m = 1; 2 * m < longestRun(phase); m *= 2) {
        const Squares squares = secondDifferences(phase, m);
        if (squares.terms >= kFewestTerms) {
            const double tauS = static_cast<double>(m) * phase.stepS;
            result.push_back(
                {tauS, kSecondsPerNs * std::sqrt(squares.mean() / 2.0) / tauS, squares.terms});
        }
    }
    return result;
}

std::vector<Deviation> timeDeviation(const EvenPhase& phase) {
    std::vector<Means> means;
    for (const std::vector<double>& run : phase.runs) {
        means.emplace_back(run);
    }
    std::vector<Deviation> result;
    for (std::size_t m = 1; 3 * m <= longestRun(phase); m *= 2) {
        const Squares squares = differencesOfMeans(means, phase, m);
        if (squares.terms >= kFewestTerms) {
            result.push_back({static_cast<double>(m) * phase.stepS, std::sqrt(squares.mean() / 6.0),
                              squares.terms});
        }
    }
    return result;
}

}  // namespace tsyn
