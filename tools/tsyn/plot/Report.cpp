#include "tools/tsyn/plot/Report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

namespace tsyn {
namespace {

constexpr std::size_t kBins = 60;

std::string secondsText(double seconds) {
    char text[48];
    const auto whole = static_cast<long long>(seconds);
    if (seconds < 120.0) {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    } else if (seconds < 7200.0) {
        std::snprintf(text, sizeof text, "%lld min %02lld s", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld h %02lld min", whole / 3600, whole / 60 % 60);
    }
    return text;
}

std::string withSource(const Report& report, std::size_t source, const std::string& name) {
    return report.sources.size() > 1 ? report.sources[source] + " " + name : name;
}

/** Series of nothing are not drawn; names tell the source where there are several. */
class ChartMaker {
public:
    ChartMaker(Report& report, std::size_t parts) : report_(report), parts_(parts) {}

    void begin(const char* id, const char* title, const char* unit, const std::string& note) {
        chart_ = {id, title, unit, note, {}};
    }

    void add(const Series& series, Drawn drawn) {
        const bool hasNumber = std::any_of(series.values.begin(), series.values.end(),
                                           [](double value) { return !std::isnan(value); });
        if (hasNumber) {
            Curve curve{drawn == Drawn::kAlert ? series : thinned(series, parts_), drawn};
            curve.series.name = withSource(report_, series.source, series.name);
            chart_.curves.push_back(std::move(curve));
        }
    }

    void end() {
        if (!chart_.curves.empty()) {
            report_.charts.push_back(std::move(chart_));
        }
    }

private:
    Report& report_;
    std::size_t parts_;
    Chart chart_;
};

std::string ppmText(double ppb) {
    char text[48];
    std::snprintf(text, sizeof text, "%+.4f ppm", ppb / 1000.0);
    return text;
}

std::string medianRates(const Report& report, const std::vector<SourceSeries>& all) {
    std::string text;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!all[i].rate.isEmpty()) {
            text += (text.empty() ? "" : "; ") +
                    withSource(report, i, "grandmaster / PHC " + ppmText(all[i].medianRatePpb)) +
                    ", PHC / system " + ppmText(all[i].medianPhcRatePpb);
        }
    }
    return "less the medians: " + text;
}

void addTimeCharts(ChartMaker& maker, const std::vector<SourceSeries>& all) {
    maker.begin("error", "Error against the true time", "ns",
                "what was told less the truth; outside the bounds of that moment it is marked");
    for (const SourceSeries& each : all) {
        maker.add(each.halfWidth, Drawn::kBand);
        maker.add(each.error, Drawn::kLine);
        maker.add(each.outside, Drawn::kAlert);
    }
    maker.end();
    maker.begin("correction", "Correction by each Sync", "ns",
                "time of the new line less that of the line before, within the error bound");
    for (const SourceSeries& each : all) {
        maker.add(each.bound, Drawn::kBand);
        maker.add(each.correction, Drawn::kLine);
    }
    maker.end();
    maker.begin("offset", "Offset of the PHC from the grandmaster", "ns",
                "less a straight line for each stretch without a step");
    for (const SourceSeries& each : all) {
        maker.add(each.offset, Drawn::kLine);
    }
    maker.end();
}

void addOtherCharts(ChartMaker& maker, const Report& report, const std::vector<SourceSeries>& all) {
    maker.begin("rate", "Rate", "ppb", medianRates(report, all));
    for (const SourceSeries& each : all) {
        maker.add(each.rate, Drawn::kLine);
        maker.add(each.phcRate, Drawn::kLine);
    }
    maker.end();
    maker.begin("bound", "Error bound", "ns", "at the moment of each sample");
    for (const SourceSeries& each : all) {
        maker.add(each.bound, Drawn::kLine);
    }
    maker.end();
    maker.begin("delay", "Link delay", "ns", "");
    for (const SourceSeries& each : all) {
        maker.add(each.delay, Drawn::kLine);
    }
    maker.end();
    maker.begin("age", "Age of the last Sync", "ms", "at the moment of each sample");
    for (const SourceSeries& each : all) {
        maker.add(each.age, Drawn::kLine);
    }
    maker.end();
    maker.begin("counters", "Counters", "1/s", "those that counted anything");
    for (const SourceSeries& each : all) {
        for (const Series& counter : each.counters) {
            maker.add(counter, Drawn::kLine);
        }
    }
    maker.end();
}

void addFigures(Report& report, const SourceSeries& each, std::size_t source) {
    const bool isTruth = !each.error.isEmpty();
    const Series& main = isTruth ? each.error : each.correction;
    std::vector<double> sizes;
    for (const double value : main.values) {
        sizes.push_back(std::fabs(value));
    }
    const auto add = [&](const char* name, const std::string& value) {
        report.figures.emplace_back(withSource(report, source, name), value);
    };
    const std::string what = isTruth ? "error" : "correction";
    add((what + ", median").c_str(), nsText(quantile(sizes, 0.5)));
    add((what + ", 99 %").c_str(), nsText(quantile(sizes, 0.99)));
    add((what + ", most").c_str(), nsText(quantile(sizes, 1.0)));
    if (isTruth) {
        add("outside the bounds", std::to_string(each.outside.atS.size()) + " of " +
                                      std::to_string(each.halfWidth.atS.size()));
        return;
    }
    if (!each.bound.isEmpty() && quantile(each.bound.values, 1.0) > 0.0) {
        add("bound, median", nsText(quantile(each.bound.values, 0.5)));
    }
    add("delay, median", nsText(quantile(each.delay.values, 0.5)));
}

void addSpan(Report& report, const std::vector<SourceSeries>& all) {
    double beginS = std::numeric_limits<double>::infinity();
    double endS = -beginS;
    for (const SourceSeries& each : all) {
        for (const Series* series : {&each.bound, &each.error}) {
            if (!series->isEmpty()) {
                beginS = std::min(beginS, series->atS.front());
                endS = std::max(endS, series->atS.back());
            }
        }
    }
    report.beginS = beginS;
    report.endS = std::max(endS, beginS + 1e-3);
    report.figures.emplace_back("duration", secondsText(endS - beginS));
}

void addStateFigure(Report& report, std::size_t source) {
    double goodS = 0.0;
    double allS = 0.0;
    for (const StateBand& band : report.states[source]) {
        const bool isGood =
            band.state == RecordedState::kSynchronised || band.state == RecordedState::kSending;
        allS += band.toS - band.fromS;
        goodS += isGood ? band.toS - band.fromS : 0.0;
    }
    if (allS > 0.0) {
        char text[32];
        std::snprintf(text, sizeof text, "%.2f %%", 100.0 * goodS / allS);
        report.figures.emplace_back(withSource(report, source, "synchronised"), text);
    }
}

void addSource(Report& report, const PlotSource& source, const SourceSeries& series,
               std::size_t index) {
    report.states.push_back(stateBands(source, report.originNs));
    report.events.insert(report.events.end(), source.events.begin(), source.events.end());
    addStateFigure(report, index);
    addFigures(report, series, index);
    const bool isTruth = !series.error.isEmpty();
    Histogram histogram = histogramOf(isTruth ? series.error : series.correction);
    if (!histogram.counts.empty()) {
        histogram.name = withSource(report, index, isTruth ? "error" : "correction");
        report.histograms.push_back(std::move(histogram));
    }
    const EvenPhase phase = evenPhase(series.phase);
    const std::string name = withSource(report, index, isTruth ? "error" : "offset");
    const DeviationCurve allan{name, index, allanDeviation(phase)};
    if (!allan.points.empty()) {
        report.allan.push_back(allan);
        report.time.push_back({name, index, timeDeviation(phase)});
    }
}

std::string titleOf(const PlotInput& input) {
    std::string title;
    for (const PlotSource& source : input.sources) {
        title += (title.empty() ? "" : ", ") + source.name;
    }
    return title;
}

long long originOf(const PlotInput& input) {
    for (const PlotSource& source : input.sources) {
        if (!source.samples.empty()) {
            return source.samples.front().systemNs;
        }
    }
    return 0;
}

}  // namespace

std::string nsText(double ns) {
    constexpr std::array<const char*, 4> kUnits = {"ns", "us", "ms", "s"};
    std::size_t unit = 0;
    while (std::fabs(ns) >= 1000.0 && unit + 1 < kUnits.size()) {
        ns /= 1000.0;
        ++unit;
    }
    char text[48];
    std::snprintf(text, sizeof text, "%.3g %s", ns, kUnits.at(unit));
    return text;
}

Histogram histogramOf(const Series& series) {
    Histogram histogram;
    histogram.source = series.source;
    if (series.isEmpty()) {
        return histogram;
    }
    const double low = quantile(series.values, 0.005);
    const double high = quantile(series.values, 0.995);
    const double marginNs = std::max(0.1 * (high - low), 0.5);
    histogram.fromNs = low - marginNs;
    histogram.binNs = (high - low + 2.0 * marginNs) / static_cast<double>(kBins);
    histogram.counts.assign(kBins, 0);
    for (const double value : series.values) {
        const double bin = std::floor((value - histogram.fromNs) / histogram.binNs);
        if (bin >= 0.0 && bin < static_cast<double>(kBins)) {
            ++histogram.counts[static_cast<std::size_t>(bin)];
        } else if (!std::isnan(value)) {
            ++histogram.beyond;
        }
    }
    return histogram;
}

Report makeReport(const PlotInput& input, std::size_t parts, double shiftS) {
    Report report;
    report.title = titleOf(input);
    report.files = input.files;
    report.damages = input.damages;
    report.originNs = originOf(input);
    std::vector<SourceSeries> all;
    for (const PlotSource& source : input.sources) {
        report.sources.push_back(source.name);
        all.push_back(seriesOf(source, all.size(), report.originNs, shiftS));
    }
    addSpan(report, all);
    for (std::size_t i = 0; i < all.size(); ++i) {
        addSource(report, input.sources[i], all[i], i);
    }
    ChartMaker maker(report, parts);
    addTimeCharts(maker, all);
    addOtherCharts(maker, report, all);
    return report;
}

}  // namespace tsyn
