#include "platform/Descriptors.h"

#include <gtest/gtest.h>

namespace {

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

TEST(DescriptorOfZero, IsMovedBehindTheStandardStreamsEvenWhereOneIsClosed) {
    const int standardError = dup(2);
    close(2);
    close(3);
    close(0);
    ASSERT_EQ(0, open("/dev/null", O_RDONLY));
    EXPECT_EQ(3, awayFromZero(0));
    EXPECT_FALSE(isOpen(0));
    EXPECT_FALSE(isOpen(2));
    dup2(standardError, 2);
}

TEST(DescriptorOfZero, OthersAndFailuresStayAsTheyAre) {
    EXPECT_EQ(-1, awayFromZero(-1));
    EXPECT_EQ(1, awayFromZero(1));
    EXPECT_TRUE(isOpen(1));
}

}  // namespace
