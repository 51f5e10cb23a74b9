#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/tsyn/plot/Deviations.h"
#include "tools/tsyn/plot/Input.h"

namespace tsyn {

/** Values over time; NaN parts what is not joined. */
struct Series {
    std::string name;
    std::size_t source = 0;
    std::vector<double> atS;
    std::vector<double> values;

    void add(double s, double value) {
        atS.push_back(s);
        values.push_back(value);
    }
    bool isEmpty() const { return atS.empty(); }
};

/** What one source tells over time, in seconds since the report's beginning. */
struct SourceSeries {
    Series correction;  ///< of the time by each Sync, ns
    Series offset;      ///< PHC minus grandmaster without the steady drift, ns
    Series bound;
    Series rate;     ///< grandmaster over PHC, ppb, less its median
    Series phcRate;  ///< PHC over system clock, likewise
    Series delay;
    Series age;                    ///< of the last Sync, ms
    std::vector<Series> counters;  ///< per second, of those that counted
    Series error;                  ///< against the true time, ns
    Series halfWidth;              ///< half of what lies between earliest and latest time, ns
    Series outside;                ///< errors of samples whose truth lay outside
    double medianRatePpb = 0.0;
    double medianPhcRatePpb = 0.0;
    std::vector<PhaseRun> phase;
};

/** originNs: system time of the report's beginning. shiftS: added to the times of samples against
 *  the true time, which count from the start of their daemon. */
SourceSeries seriesOf(const PlotSource& source, std::size_t index, long long originNs,
                      double shiftS);

/** At most two points, the least and the greatest value, of each of so many equal parts of the
 *  series' time, in their order; all of it where there are few. */
Series thinned(const Series& series, std::size_t parts);

/** Linear between neighbours; 0 of nothing. Values that are no number do not count. */
double quantile(std::vector<double> values, double part);

/** When a daemon is at a state, from one sample to the next, and to the last one before a gap. One
 *  that has ended is lost, whatever the record says that it left behind. */
struct StateBand {
    double fromS = 0.0;
    double toS = 0.0;
    RecordedState state = RecordedState::kNoMaster;
};
std::vector<StateBand> stateBands(const PlotSource& source, long long originNs);

}  // namespace tsyn
