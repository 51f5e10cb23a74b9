#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/tsyn/plot/Series.h"

namespace tsyn {

/** How a series is drawn; a band reaches as far above zero as below. */
enum class Drawn { kLine, kBand, kAlert };

struct Curve {
    Series series;
    Drawn drawn = Drawn::kLine;
};

/** One diagram over time. */
struct Chart {
    std::string id;
    std::string title;
    std::string unit;
    std::string note;
    std::vector<Curve> curves;
};

/** How often values were met. */
struct Histogram {
    std::string name;
    std::size_t source = 0;
    double fromNs = 0.0;
    double binNs = 0.0;
    std::vector<unsigned long> counts;
    unsigned long beyond = 0;  ///< values that no bin has
};

struct DeviationCurve {
    std::string name;
    std::size_t source = 0;
    std::vector<Deviation> points;
};

/** Everything that is drawn, whatever draws it. */
struct Report {
    std::string title;
    std::vector<std::string> files;
    std::vector<std::string> damages;
    std::vector<std::string> sources;
    long long originNs = 0;  ///< system time of second 0; 0: the time has no date
    double beginS = 0.0;
    double endS = 0.0;
    std::vector<std::pair<std::string, std::string>> figures;
    std::vector<std::vector<StateBand>> states;  ///< of each source
    std::vector<RecordedEvent> events;
    std::vector<Chart> charts;
    std::vector<Histogram> histograms;
    std::vector<DeviationCurve> allan;
    std::vector<DeviationCurve> time;
};

/** parts: into how many equal parts of its time a series is thinned. shiftS: see seriesOf. */
Report makeReport(const PlotInput& input, std::size_t parts, double shiftS);

/** Of all that is a number, into equal bins about the middle; what is far out is counted apart. */
Histogram histogramOf(const Series& series);

/** "12.3 us", with three digits. */
std::string nsText(double ns);

}  // namespace tsyn
