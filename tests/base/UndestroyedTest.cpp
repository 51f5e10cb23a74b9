#include "base/Undestroyed.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

struct Counting {
    Counting() { ++constructed; }
    ~Counting() { ++destroyed; }
    static int constructed;
    static int destroyed;
};
int Counting::constructed = 0;
int Counting::destroyed = 0;

TEST(Undestroyed, IsDestroyedInAProcessWithoutADaemon) {
    {
        Undestroyed<Counting> storage;
        EXPECT_EQ(1, Counting::constructed);
    }
    EXPECT_EQ(1, Counting::destroyed);
}

TEST(Undestroyed, OutlivesADaemonThread) {
    noteDaemonThread();
    { Undestroyed<Counting> storage; }
    EXPECT_EQ(0, Counting::destroyed);
}

TEST(ZeroInitialised, IsAllZeroBytesAndNeedsNoConstructor) {
    static ZeroInitialised<Counting> storage;
    EXPECT_EQ(0, Counting::constructed);
    EXPECT_TRUE(std::all_of(std::begin(storage.bytes), std::end(storage.bytes),
                            [](unsigned char byte) { return byte == 0; }));
}

TEST(ZeroInitialised, IsDestroyedInAProcessWithoutADaemonOnly) {
    { ZeroInitialised<Counting> storage; }
    EXPECT_EQ(1, Counting::destroyed);
    noteDaemonThread();
    { ZeroInitialised<Counting> storage; }
    EXPECT_EQ(1, Counting::destroyed);
}

}  // namespace
