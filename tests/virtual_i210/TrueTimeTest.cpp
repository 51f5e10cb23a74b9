#include "tools/virtual_i210/TrueTime.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/Sandbox.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

/** As a program that is not linked with the card finds it. */
auto* trueTime() {
    return reinterpret_cast<decltype(&virtual_i210_true_time)>(
        dlsym(RTLD_DEFAULT, "virtual_i210_true_time"));
}

TEST(TrueTime, IsTheExactTimeOfACard) {
    Sandbox sandbox;
    setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0; tss0 rate_ppb=37000 offset_ns=1500000000",
           1);
    const std::uint64_t rawNs = virtual_i210::rawNowNs() + 7'654'321'987U;
    std::uint64_t phcNs = 0;
    ASSERT_EQ(1, trueTime()("tss0", rawNs, &phcNs));
    EXPECT_EQ(*virtual_i210::truePhcNs("tss0", rawNs), phcNs);
}

TEST(TrueTime, IsOfCardsAlone) {
    Sandbox sandbox;
    setenv("VIRTUAL_I210", "state=/dev/shm/cards; tsm0", 1);
    std::uint64_t phcNs = 5;
    EXPECT_EQ(0, trueTime()("eth7", 1, &phcNs));
    EXPECT_EQ(5U, phcNs);
}

TEST(TrueTime, IsOfNoInterfaceWithoutSettings) {
    unsetenv("VIRTUAL_I210");
    std::uint64_t phcNs = 5;
    EXPECT_EQ(0, trueTime()("tss0", 1, &phcNs));
}

}  // namespace
