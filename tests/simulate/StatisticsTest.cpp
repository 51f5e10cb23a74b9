#include "tools/simulate/Statistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace {

using simulate::Sample;

std::vector<double> upTo(int last) {
    std::vector<double> values(static_cast<std::size_t>(last));
    std::iota(values.begin(), values.end(), 1.0);
    return values;
}

TEST(APercentile, IsTheSmallestValueThatThePartDoesNotExceed) {
    EXPECT_EQ(simulate::percentile(upTo(100), 0.99), 99.0);
    EXPECT_EQ(simulate::percentile(upTo(101), 0.99), 100.0);
    EXPECT_EQ(simulate::percentile(upTo(100), 0.50), 50.0);
    EXPECT_EQ(simulate::percentile(upTo(3), 0.50), 2.0);
    EXPECT_EQ(simulate::percentile(upTo(700), 0.07), 49.0);
}

TEST(APercentile, OfOneValueIsThatValue) {
    EXPECT_EQ(simulate::percentile({7.0}, 0.0), 7.0);
    EXPECT_EQ(simulate::percentile({7.0}, 0.5), 7.0);
    EXPECT_EQ(simulate::percentile({7.0}, 1.0), 7.0);
}

TEST(Statistics, AreOfTheSizeButForTheMean) {
    const auto found = simulate::statisticsOf({{1.0, -3.0}, {2.0, 4.0}, {3.0, -5.0}, {4.0, 5.0}});
    EXPECT_EQ(found.called("count"), 4.0);
    EXPECT_EQ(found.called("p50"), 4.0);
    EXPECT_EQ(found.called("p99"), 5.0);
    EXPECT_EQ(found.called("max"), 5.0);
    EXPECT_EQ(found.maxAtS, 3.0);
    EXPECT_EQ(found.called("mean"), 0.25);
    EXPECT_DOUBLE_EQ(*found.called("rms"), std::sqrt(75.0 / 4.0));
}

TEST(Statistics, OfNothingAreOnlyACount) {
    const auto found = simulate::statisticsOf({});
    EXPECT_EQ(found.called("count"), 0.0);
    for (const char* name : {"p50", "p99", "max", "rms", "mean"}) {
        EXPECT_EQ(found.called(name), std::nullopt) << name;
    }
}

/** Ten samples a second from second 10 on, with these errors. */
std::vector<Sample> samplesOf(const std::vector<std::int64_t>& errors) {
    std::vector<Sample> samples;
    for (std::size_t i = 0; i < errors.size(); ++i) {
        samples.push_back({10.0 + 0.1 * static_cast<double>(i), errors[i], 0, true});
    }
    return samples;
}

TEST(ARecovery, LastsUntilTheErrorStaysSmall) {
    const auto samples = samplesOf({9000, 50, 9000, -2000, 1000, 999, -999, 0, 5000});
    EXPECT_NEAR(simulate::recoveryS(samples, 10.0, 99.0, 1000.0, 0.3).value_or(-1.0), 0.4, 1e-9);
    EXPECT_NEAR(simulate::recoveryS(samples, 10.0, 99.0, 1000.0, 0.0).value_or(-1.0), 0.1, 1e-9);
}

TEST(ARecovery, DoesNotComeWhenTheErrorGrowsAgainOrTheWindowEnds) {
    const auto samples = samplesOf({9000, 50, 50, 50, 50, 9000});
    EXPECT_EQ(simulate::recoveryS(samples, 10.0, 99.0, 1000.0, 0.4), std::nullopt);
    EXPECT_EQ(simulate::recoveryS(samples, 10.0, 10.25, 1000.0, 0.2), std::nullopt);
    EXPECT_EQ(simulate::recoveryS({}, 10.0, 99.0, 1000.0, 0.0), std::nullopt);
}

TEST(ARecovery, CountsFromTheEventsEndAndLooksAtValidSamplesOnly) {
    auto samples = samplesOf({50, 50, 50, 50, 50, 50, 50});
    samples[3].valid = false;
    samples[4].valid = false;
    EXPECT_NEAR(simulate::recoveryS(samples, 10.25, 99.0, 1000.0, 0.1).value_or(-1.0), 0.25, 1e-9);
}

}  // namespace
