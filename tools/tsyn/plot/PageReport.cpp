#include "tools/tsyn/plot/PageReport.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/tsyn/plot/Page.h"

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kNsPerMs = 1e6;

/** Digits beyond what is drawn or read off would only make the page larger. */
Json rounded(double value, double unit) {
    if (std::isnan(value)) {
        return nullptr;
    }
    const double result = std::round(value / unit) * unit;
    const double whole = std::round(result);
    return std::fabs(result - whole) < unit / 2.0 && std::fabs(whole) < 1e15
               ? Json(static_cast<long long>(whole))
               : Json(result);
}

/** Decimals as text, since the shortest text of a double may have seventeen digits. */
Json column(const std::vector<double>& values, int decimals) {
    Json numbers = Json::array();
    for (const double value : values) {
        numbers.push_back(rounded(value * std::pow(10.0, decimals), 1.0));
    }
    return numbers;
}

const char* drawnName(Drawn drawn) {
    switch (drawn) {
    case Drawn::kBand:
        return "band";
    case Drawn::kAlert:
        return "alert";
    case Drawn::kLine:
        break;
    }
    return "line";
}

Json chartsJson(const Report& report) {
    constexpr int kTimeDecimals = 3;
    constexpr int kValueDecimals = 3;
    Json charts = Json::array();
    for (const Chart& chart : report.charts) {
        Json curves = Json::array();
        for (const Curve& curve : chart.curves) {
            curves.push_back({{"name", curve.series.name},
                              {"source", curve.series.source},
                              {"drawn", drawnName(curve.drawn)},
                              {"milliseconds", column(curve.series.atS, kTimeDecimals)},
                              {"thousandths", column(curve.series.values, kValueDecimals)}});
        }
        charts.push_back({{"id", chart.id},
                          {"title", chart.title},
                          {"unit", chart.unit},
                          {"note", chart.note},
                          {"curves", curves}});
    }
    return charts;
}

Json statesJson(const Report& report) {
    Json states = Json::array();
    for (const std::vector<StateBand>& bands : report.states) {
        Json lane = Json::array();
        for (const StateBand& band : bands) {
            lane.push_back({rounded(band.fromS, 1e-3), rounded(band.toS, 1e-3),
                            recordedStateName(band.state)});
        }
        states.push_back(lane);
    }
    return states;
}

Json histogramsJson(const Report& report) {
    Json all = Json::array();
    for (const Histogram& histogram : report.histograms) {
        all.push_back({{"name", histogram.name},
                       {"source", histogram.source},
                       {"from", histogram.fromNs},
                       {"bin", histogram.binNs},
                       {"counts", histogram.counts},
                       {"beyond", histogram.beyond}});
    }
    return all;
}

Json deviationsJson(const std::vector<DeviationCurve>& curves) {
    Json all = Json::array();
    for (const DeviationCurve& curve : curves) {
        Json points = Json::array();
        for (const Deviation& point : curve.points) {
            points.push_back({point.tauS, point.value, point.terms});
        }
        all.push_back({{"name", curve.name}, {"source", curve.source}, {"points", points}});
    }
    return all;
}

Json eventsJson(const Report& report) {
    Json all = Json::array();
    for (const RecordedEvent& event : report.events) {
        const auto sinceNs = static_cast<unsigned long long>(event.systemNs) -
                             static_cast<unsigned long long>(report.originNs);
        const double atS = 1e-9 * static_cast<double>(static_cast<long long>(sinceNs));
        all.push_back({rounded(atS, 1e-3), event.kind, event.text});
    }
    return all;
}

Json reportJson(const Report& report) {
    return {{"title", report.title},
            {"files", report.files},
            {"damages", report.damages},
            {"sources", report.sources},
            {"origin_ms", static_cast<double>(report.originNs) / kNsPerMs},
            {"begin", report.beginS},
            {"end", report.endS},
            {"figures", report.figures},
            {"states", statesJson(report)},
            {"events", eventsJson(report)},
            {"charts", chartsJson(report)},
            {"histograms", histogramsJson(report)},
            {"allan", deviationsJson(report.allan)},
            {"time", deviationsJson(report.time)}};
}

/** A text of the data must not end the element that holds them. */
std::string inScript(std::string text) {
    for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at)) {
        text.replace(at, 1, "\\u003c");
    }
    return text;
}

void put(std::string& page, const std::string& mark, const std::string& text) {
    page.replace(page.find(mark), mark.size(), text);
}

}  // namespace

std::string reportPage(const Report& report) {
    std::string page = kPageHtml;
    put(page, "/*style*/", kPageCss);
    put(page, "/*script*/", kPageScript);
    const std::string data = reportJson(report).dump(-1, ' ', true, Json::error_handler_t::replace);
    put(page, "/*data*/", inScript(data));
    return page;
}

}  // namespace tsyn
