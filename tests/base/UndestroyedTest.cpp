#include "base/Undestroyed.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

namespace {

/** Tells standard error when it is destroyed. */
template <char Name>
struct Told {
    Told() { ++constructed; }
    ~Told() {
        const char name = Name;
        if (write(STDERR_FILENO, &name, 1) == 1) {
            ++destroyed;
        }
    }
    static inline int constructed = 0;
    static inline int destroyed = 0;
};

/** What the library's shared objects are: maps and strings, then condition variables. */
void defineSharedObjects() {
    static Undestroyed<Told<'a'>> first;
    static Undestroyed<Told<'b'>> second;
    static ZeroInitialised<Told<'c'>> third;
    static ZeroInitialised<Told<'d'>> fourth;
}

TEST(Undestroyed, IsConstructedWithItsStorage) {
    noteDaemonThread();
    const Undestroyed<Told<'a'>> storage;
    EXPECT_EQ(1, Told<'a'>::constructed);
}

TEST(ProcessEnd, DestroysSharedObjectsInReverseOrderWithoutADaemon) {
    EXPECT_EXIT(
        {
            defineSharedObjects();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^dcba$");
}

TEST(ProcessEnd, DestroysNoSharedObjectOnceADaemonThreadRan) {
    EXPECT_EXIT(
        {
            defineSharedObjects();
            std::thread(noteDaemonThread).join();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^$");
}

TEST(DaemonThreads, HaveRunOnceOneIsNoted) {
    EXPECT_FALSE(daemonThreadsRan());
    noteDaemonThread();
    EXPECT_TRUE(daemonThreadsRan());
    noteDaemonThread();
    EXPECT_TRUE(daemonThreadsRan());
}

TEST(ZeroInitialised, IsAllZeroBytesAndNeedsNoConstructor) {
    static ZeroInitialised<Told<'a'>> storage;
    EXPECT_EQ(0, Told<'a'>::constructed);
    EXPECT_TRUE(std::all_of(std::begin(storage.bytes), std::end(storage.bytes),
                            [](unsigned char byte) { return byte == 0; }));
}

}  // namespace
