#pragma once

#include <cstddef>
#include <vector>

namespace tsyn {

inline constexpr double kSecondsPerNs = 1e-9;

/** Phase of one clock against another, ns, at instants in seconds; in their order. */
struct PhaseRun {
    std::vector<double> atS;
    std::vector<double> phaseNs;
};

/** Phase on an even grid; NaN where there is no sample. */
struct EvenPhase {
    double stepS = 0.0;
    std::vector<std::vector<double>> runs;
};

struct Deviation {
    double tauS = 0.0;
    double value = 0.0;
    std::size_t terms = 0;  ///< differences that it is the mean of
};

/** Puts each sample into the slot of the grid that is nearest, the grid's step being the usual
 *  interval of the samples. What a steady drift moves the phase between a sample and its slot is
 *  taken off, as is the drift. Runs are parted by steps, over which nothing is compared. */
EvenPhase evenPhase(const std::vector<PhaseRun>& runs);

/** Overlapping Allan deviation, a ratio, at powers of two times the step. A difference counts when
 *  all of its three samples are there. */
std::vector<Deviation> allanDeviation(const EvenPhase& phase);

/** Time deviation in ns. A difference counts when of each of its three means at least three
 *  quarters of the samples are there. */
std::vector<Deviation> timeDeviation(const EvenPhase& phase);

}  // namespace tsyn
