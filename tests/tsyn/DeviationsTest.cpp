#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "tests/support/Seed.h"
#include "tools/tsyn/plot/Deviations.h"

namespace {

using tsyn::Deviation;
using tsyn::EvenPhase;
using tsyn::PhaseRun;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/** How steep a deviation falls from its first to its last averaging time, on logarithmic scales. */
double slope(const std::vector<Deviation>& points, std::size_t last) {
    return std::log(points[last].value / points[0].value) /
           std::log(points[last].tauS / points[0].tauS);
}

EvenPhase noise(bool isIntegrated) {
    auto generator = seededGenerator();
    std::normal_distribution<double> normal(0.0, 10.0);
    EvenPhase phase{0.125, {{}}};
    double sum = 0.0;
    for (int i = 0; i < 20000; ++i) {
        sum = normal(generator) + (isIntegrated ? sum : 0.0);
        phase.runs[0].push_back(sum);
    }
    return phase;
}

TEST(Deviations, WhitePhaseNoiseFallsWithTheTimeAndItsRoot) {
    const EvenPhase phase = noise(false);
    EXPECT_NEAR(-1.0, slope(allanDeviation(phase), 8), 0.05);
    EXPECT_NEAR(-0.5, slope(timeDeviation(phase), 8), 0.1);
    // sqrt(3) sigma / tau, and sigma, at the shortest time.
    EXPECT_NEAR(10e-9 * std::sqrt(3.0) / 0.125, allanDeviation(phase)[0].value, 4e-9);
    EXPECT_NEAR(10.0, timeDeviation(phase)[0].value, 0.3);
}

TEST(Deviations, WhiteFrequencyNoiseFallsWithTheRootAndRisesInTime) {
    const EvenPhase phase = noise(true);
    EXPECT_NEAR(-0.5, slope(allanDeviation(phase), 8), 0.1);
    EXPECT_NEAR(0.5, slope(timeDeviation(phase), 8), 0.15);
    EXPECT_NEAR(10e-9 / 0.125, allanDeviation(phase)[0].value, 2e-9);
}

TEST(Deviations, SmallExamplesByHand) {
    // Second differences: 1, -3, 4; at two steps, of x[0], x[2], x[4] only: 2.
    const EvenPhase phase{2.0, {{0, 1, 3, 2, 5}}};
    const auto allan = allanDeviation(phase);
    ASSERT_EQ(1U, allan.size());
    EXPECT_EQ(3U, allan[0].terms);
    EXPECT_DOUBLE_EQ(2.0, allan[0].tauS);
    EXPECT_DOUBLE_EQ(1e-9 * std::sqrt(26.0 / (2 * 3)) / 2.0, allan[0].value);
    EXPECT_DOUBLE_EQ(std::sqrt(26.0 / (6 * 3)), timeDeviation(phase)[0].value);
    // Means of two: 0.5 2 2.5 3.5 5.5 6 5; their differences two steps apart: 1, 1, -3.5.
    const EvenPhase longer{1.0, {{0, 1, 3, 2, 5, 6, 6, 4}}};
    const auto time = timeDeviation(longer);
    ASSERT_EQ(2U, time.size());
    EXPECT_EQ(3U, time[1].terms);
    EXPECT_DOUBLE_EQ(std::sqrt((1 + 1 + 12.25) / (6 * 3)), time[1].value);
}

TEST(Deviations, NothingIsComparedOverAMissingSampleOrAStep) {
    const EvenPhase missing{1.0, {{0, 1, 3, kNaN, 5, 9, 6, 4}}};
    EXPECT_EQ(3U, allanDeviation(missing)[0].terms);
    const EvenPhase parted{1.0, {{0, 1, 3, 2}, {1e9, 1e9 + 1, 1e9 + 3, 1e9 + 2}}};
    const auto allan = allanDeviation(parted);
    EXPECT_EQ(4U, allan[0].terms);
    EXPECT_DOUBLE_EQ(1e-9 * std::sqrt((1 + 9 + 1 + 9) / (2.0 * 4)), allan[0].value);
    const EvenPhase empty{1.0, {}};
    EXPECT_TRUE(allanDeviation(empty).empty());
    EXPECT_TRUE(timeDeviation(empty).empty());
}

TEST(Deviations, UnevenSamplesFallIntoTheirSlotsWithoutTheDrift) {
    PhaseRun run;
    for (int i = 0; i < 100; ++i) {
        if (i != 40 && i != 41) {
            const double atS = 0.125 * i + (i % 2 == 0 ? 0.002 : -0.002);
            run.atS.push_back(atS);
            run.phaseNs.push_back(37000.0 * atS);
        }
    }
    const EvenPhase phase = tsyn::evenPhase({run});
    EXPECT_NEAR(0.125, phase.stepS, 1e-3);
    ASSERT_EQ(100U, phase.runs.at(0).size());
    for (std::size_t i = 0; i < 100; ++i) {
        if (i == 40 || i == 41) {
            EXPECT_TRUE(std::isnan(phase.runs[0][i])) << i;
        } else {
            EXPECT_NEAR(0.0, phase.runs[0][i], 1e-6) << i;
        }
    }
}

}  // namespace
