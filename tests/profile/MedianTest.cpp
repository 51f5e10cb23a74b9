#include "profile/Median.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

double middleOfSorted(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 != 0 ? values[half] : (values[half - 1] + values[half]) / 2;
}

void expectMiddleOf(std::vector<double> values) {
    const double expected = middleOfSorted(values);
    EXPECT_EQ(expected, estimator::median(values.data(), static_cast<int>(values.size())))
        << values.size() << " values";
}

TEST(Median, OfAnyNumberOfValuesIsTheMiddleOne) {
    std::mt19937 random(1);
    for (int count = 1; count <= estimator::kMostOfMedian; ++count) {
        std::vector<double> values(static_cast<std::size_t>(count));
        std::generate(values.begin(), values.end(),
                      [&random] { return static_cast<double>(random()) / 7; });
        expectMiddleOf(values);
        std::sort(values.begin(), values.end());
        expectMiddleOf(values);
    }
}

TEST(Median, OfValuesThatRepeatIsTheMiddleOne) {
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        std::vector<double> values(1 + random() % 16);
        std::generate(values.begin(), values.end(),
                      [&random] { return static_cast<double>(random() % 3) - 1; });
        expectMiddleOf(values);
    }
}

}  // namespace
