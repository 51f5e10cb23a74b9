#include "base/Undestroyed.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>

namespace {

struct Counting {
    Counting() { ++constructed; }
    ~Counting() { ++destroyed; }
    static int constructed;
    static int destroyed;
};
int Counting::constructed = 0;
int Counting::destroyed = 0;

TEST(Undestroyed, ConstructsButNeverDestroysByItself) {
    {
        Undestroyed<Counting> storage;
        EXPECT_EQ(1, Counting::constructed);
    }
    EXPECT_EQ(0, Counting::destroyed);
}

TEST(Undestroyed, AnExplicitCallDestroys) {
    Undestroyed<Counting> storage;
    storage.value.~Counting();
    EXPECT_EQ(1, Counting::destroyed);
}

TEST(ZeroInitialised, IsAllZeroBytesAndUsableAsItsType) {
    static ZeroInitialised<std::condition_variable> condition;
    EXPECT_TRUE(std::all_of(std::begin(condition.bytes), std::end(condition.bytes),
                            [](unsigned char byte) { return byte == 0; }));
    condition.value.notify_all();
}

}  // namespace
