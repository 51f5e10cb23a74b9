#include "platform/PhcDevice.h"

#include <gtest/gtest.h>

#include "tests/support/Vectors.h"

namespace {

TEST(PhcDevice, ClockIdAndPathFollowTheDeviceRules) {
    for (const auto& vector : vectors("phc")) {
        if (vector.contains("descriptor")) {
            EXPECT_EQ(vector["clockid"].get<int>(), clockIdOf(vector["descriptor"].get<int>()));
        } else {
            EXPECT_EQ(vector["path"].get<std::string>(), phcDevicePath(vector["index"].get<int>()));
        }
    }
}

}  // namespace
