#include "timebase/PartialRegressionLine.h"

#include <gtest/gtest.h>

namespace {

TEST(FittedLine, IsTheIdentityWithoutSamples) {
    EXPECT_EQ(slope_x, 0U);
    EXPECT_EQ(slope_y, 0U);
    EXPECT_EQ(slope_mZ, 1);
    EXPECT_EQ(slope_mN, 1);
}

}  // namespace
