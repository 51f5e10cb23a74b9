#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/tsyn/plot/PageReport.h"
#include "tools/tsyn/plot/PictureReport.h"
#include "tools/tsyn/plot/Series.h"

namespace {

using tsyn::PlotInput;
using tsyn::PlotSource;
using tsyn::RecordedSample;
using tsyn::RecordedState;
using tsyn::Series;

constexpr long long kSecondNs = 1'000'000'000;

/** A slave whose PHC runs 1000 ppb fast, told exactly. */
RecordedSample sampleAt(long long s) {
    RecordedSample sample;
    sample.systemNs = s * kSecondNs;
    sample.state = RecordedState::kSynchronised;
    sample.localNs = (s + 100) * kSecondNs;
    sample.ratePpb = -1000.0;
    sample.phcRatePpb = 0.0;
    sample.offsetNs = 5'000'000 + 1000 * s;
    sample.counters[0] = static_cast<unsigned int>(8 * s);
    return sample;
}

PlotSource recording(long long seconds) {
    PlotSource source;
    source.name = "eth1";
    for (long long s = 1; s <= seconds; ++s) {
        source.samples.push_back(sampleAt(s));
    }
    return source;
}

TEST(Series, ACorrectionIsWhatTheNewLineMovesTheTimeBy) {
    PlotSource source = recording(4);
    *source.samples[2].offsetNs += 30;
    const auto series = seriesOf(source, 0, kSecondNs, 0.0);
    EXPECT_EQ((std::vector<double>{1.0, 2.0, 3.0}), series.correction.atS);
    ASSERT_EQ(3U, series.correction.values.size());
    EXPECT_NEAR(0.0, series.correction.values[0], 1e-3);
    EXPECT_NEAR(-30.0, series.correction.values[1], 1e-3);
    EXPECT_NEAR(30.0, series.correction.values[2], 1e-3);
}

TEST(Series, TheOffsetIsTakenFromAStraightLine) {
    const auto series = seriesOf(recording(5), 0, kSecondNs, 0.0);
    ASSERT_EQ(5U, series.offset.values.size());
    for (const double value : series.offset.values) {
        EXPECT_NEAR(0.0, value, 1e-6);
    }
}

TEST(Series, AStepPartsTheOffsetAndIsNoCorrection) {
    PlotSource source = recording(6);
    for (std::size_t i = 3; i < 6; ++i) {
        *source.samples[i].offsetNs += kSecondNs;
    }
    const auto series = seriesOf(source, 0, kSecondNs, 0.0);
    EXPECT_EQ(2U, series.phase.size());
    EXPECT_TRUE(std::isnan(series.correction.values.at(2)));
    EXPECT_NEAR(0.0, series.offset.values.back(), 1e-6);
}

TEST(Series, SamplesWithEmptyFieldsMoveNoCurve) {
    PlotSource source = recording(5);
    source.samples[0] = RecordedSample{};
    source.samples[0].systemNs = kSecondNs;
    source.samples[1].ratePpb.reset();
    const auto series = seriesOf(source, 0, kSecondNs, 0.0);
    EXPECT_EQ((std::vector<double>{1.0, 2.0, 3.0, 4.0}), series.offset.atS);
    EXPECT_EQ((std::vector<double>{2.0, 3.0, 4.0}), series.rate.atS);
    EXPECT_EQ(-1000.0, series.medianRatePpb);
    EXPECT_TRUE(series.delay.isEmpty());
    for (const double value : series.offset.values) {
        EXPECT_NEAR(0.0, value, 1e-6);
    }
}

TEST(Series, CountersAreToldPerSecondAndNotOverARestart) {
    PlotSource source = recording(4);
    source.samples[3].counters[0] = 2;
    const auto series = seriesOf(source, 0, kSecondNs, 0.0);
    ASSERT_EQ(1U, series.counters.size());
    EXPECT_EQ("accepted sync", series.counters[0].name);
    EXPECT_EQ((std::vector<double>{8.0, 8.0}), series.counters[0].values);
}

TEST(Series, OnlyTruthOutsideTheBoundsIsMarked) {
    PlotSource source;
    source.truth = {{0.0, 50.0, false, false, 0.0, 0.0},
                    {1.0, 20.0, true, true, 0.0, 100.0},
                    {2.0, 80.0, true, true, 30.0, 100.0}};
    const auto series = seriesOf(source, 0, 0, 10.0);
    EXPECT_EQ((std::vector<double>{12.0}), series.outside.atS);
    EXPECT_EQ((std::vector<double>{50.0, 50.0}), series.halfWidth.values);
    EXPECT_TRUE(std::isnan(series.error.values.at(0)));
}

TEST(Series, ThinningLosesNoSpikeAndNoGap) {
    Series series;
    for (int i = 0; i < 100000; ++i) {
        series.add(i, i == 54321 ? 1e6 : i == 12345 ? -1e6 : i == 70000 ? std::nan("") : i % 7);
    }
    const Series thin = thinned(series, 100);
    EXPECT_LE(thin.atS.size(), 203U);
    const auto at = [&](double s) {
        const auto found = std::find(thin.atS.begin(), thin.atS.end(), s);
        return found == thin.atS.end() ? 0.0 : thin.values[std::size_t(found - thin.atS.begin())];
    };
    EXPECT_EQ(1e6, at(54321));
    EXPECT_EQ(-1e6, at(12345));
    EXPECT_TRUE(std::is_sorted(thin.atS.begin(), thin.atS.end()));
    EXPECT_EQ(1, std::count_if(thin.values.begin(), thin.values.end(),
                               [](double value) { return std::isnan(value); }));
}

TEST(Series, AHistogramCountsWhatIsFarOutApart) {
    Series series;
    for (int i = 0; i < 1000; ++i) {
        series.add(i, i % 10);
    }
    series.add(1000, 1e6);
    const auto histogram = tsyn::histogramOf(series);
    unsigned long sum = 0;
    for (const unsigned long count : histogram.counts) {
        sum += count;
    }
    EXPECT_EQ(1000U, sum);
    EXPECT_EQ(1U, histogram.beyond);
}

TEST(Series, StatesBecomeBands) {
    PlotSource source = recording(5);
    source.samples[2].state = RecordedState::kHoldover;
    const auto bands = stateBands(source, kSecondNs);
    ASSERT_EQ(3U, bands.size());
    EXPECT_EQ(RecordedState::kHoldover, bands[1].state);
    EXPECT_EQ(2.0, bands[1].fromS);
    EXPECT_EQ(3.0, bands[1].toS);
}

TEST(Series, NoStateAndNoRateIsDrawnOverAGap) {
    PlotSource source = recording(40);
    source.samples.erase(source.samples.begin() + 10, source.samples.begin() + 30);
    const auto bands = stateBands(source, kSecondNs);
    ASSERT_EQ(2U, bands.size());
    EXPECT_EQ(9.0, bands[0].toS);
    EXPECT_DOUBLE_EQ(30.0, bands[1].fromS);
    const Series accepted = seriesOf(source, 0, kSecondNs, 0.0).counters.at(0);
    EXPECT_EQ(1, std::count_if(accepted.values.begin(), accepted.values.end(),
                               [](double value) { return std::isnan(value); }));
    for (std::size_t i = 1; i < accepted.atS.size(); ++i) {
        EXPECT_TRUE(accepted.atS[i] - accepted.atS[i - 1] < 15.0 ||
                    std::isnan(accepted.values[i - 1]));
    }
}

TEST(Series, WhatADeadDaemonLeftIsLostUntilOneBeginsAnew) {
    PlotSource source = recording(20);
    source.events = {{5 * kSecondNs, "ended", "owner 7 has ended"},
                     {8 * kSecondNs, "gap", "0.1 s"},
                     {15 * kSecondNs, "restart", "the daemon began anew"}};
    const auto bands = stateBands(source, kSecondNs);
    ASSERT_EQ(3U, bands.size());
    EXPECT_EQ(RecordedState::kLost, bands[1].state);
    EXPECT_EQ(4.0, bands[1].fromS);
    EXPECT_EQ(14.0, bands[1].toS);
    EXPECT_EQ(RecordedState::kSynchronised, bands[2].state);
}

TEST(Report, NamesOfOthersStayTextInPageAndScript) {
    PlotInput input;
    input.sources.push_back(recording(40));
    input.sources[0].name = "</script><b>'`rm`";
    const auto report = makeReport(input, 3000, 0.0);
    const std::string page = reportPage(report);
    EXPECT_EQ(std::string::npos, page.find("</script><b>"));
    EXPECT_NE(std::string::npos, page.find("\\u003c/script>\\u003cb>"));
    EXPECT_EQ(std::string::npos, pictureScript(report).find("'`"));
}

TEST(Report, NoLabelOfAPictureIsLongerThanItsPlace) {
    PlotInput input;
    for (const char* name : {"eth1", "a-rather-long-name.csv", "another-rather-long-name.csv"}) {
        input.sources.push_back(recording(100));
        input.sources.back().name = name;
    }
    const tsyn::Report report = makeReport(input, 100, 0.0);
    const std::string script = pictureScript(report);
    for (const auto& [name, value] : report.figures) {
        EXPECT_NE(std::string::npos, script.find(std::string(name).append(" ").append(value)))
            << name;
    }
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t longest = line.rfind("set ylabel ", 0) == 0      ? 40
                                    : line.rfind("set label ", 0) == 0     ? 250
                                    : line.rfind("set multiplot ", 0) == 0 ? 120
                                                                           : line.size();
        EXPECT_LE(line.size(), longest) << line;
    }
}

TEST(Report, ADayOfSyncsStaysASmallPage) {
    PlotInput input;
    input.sources.push_back(recording(86400));
    const std::size_t size = reportPage(makeReport(input, 3000, 0.0)).size();
    EXPECT_LT(size, 1'000'000U);
    EXPECT_GT(size, 100'000U);
}

}  // namespace
