#include "tools/virtual_i210/Clock.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "tests/support/Seed.h"

namespace {

using virtual_i210::ClockBoard;
using virtual_i210::ClockLine;
using virtual_i210::evaluate;
using virtual_i210::FineTime;
using virtual_i210::Wander;

constexpr std::uint64_t kBaseRawNs = 1'000'000'000'000u;
constexpr std::int64_t kBasePhcNs = 1'700'000'000'000'000'000;

ClockLine lineWithRate(std::int64_t rate) {
    ClockLine line;
    line.baseRawNs = kBaseRawNs;
    line.basePhcNs = kBasePhcNs;
    line.rate = rate;
    return line;
}

TEST(Clock, RunsWithRawTimeWithoutRate) {
    const FineTime time = evaluate(lineWithRate(0), Wander{}, kBaseRawNs + 123'456'789u);
    EXPECT_EQ(kBasePhcNs + 123'456'789, time.ns);
    EXPECT_EQ(0u, time.fraction);
}

/** A rate of 2^-20 gains exactly one nanosecond in 2^20, and half of one in 2^19. */
TEST(Clock, GainsExactFractions) {
    const ClockLine fast = lineWithRate(std::int64_t{1} << 44);
    const FineTime whole = evaluate(fast, Wander{}, kBaseRawNs + (1u << 20));
    EXPECT_EQ(kBasePhcNs + (1 << 20) + 1, whole.ns);
    EXPECT_EQ(0u, whole.fraction);
    const FineTime half = evaluate(fast, Wander{}, kBaseRawNs + (1u << 19));
    EXPECT_EQ(kBasePhcNs + (1 << 19), half.ns);
    EXPECT_EQ(0x80000000u, half.fraction);
}

TEST(Clock, LosesAndRunsBackwardsExactly) {
    const ClockLine slow = lineWithRate(-(std::int64_t{1} << 44));
    const FineTime after = evaluate(slow, Wander{}, kBaseRawNs + (1u << 19));
    EXPECT_EQ(kBasePhcNs + (1 << 19) - 1, after.ns);
    EXPECT_EQ(0x80000000u, after.fraction);
    const FineTime before = evaluate(slow, Wander{}, kBaseRawNs - (1u << 20));
    EXPECT_EQ(kBasePhcNs - (1 << 20) + 1, before.ns);
}

TEST(Clock, AgreesWithFloatingPointOverADay) {
    std::mt19937_64 random = seededGenerator();
    for (int i = 0; i < 10'000; ++i) {
        SCOPED_TRACE(i);
        const auto ppt = static_cast<std::int64_t>(random() % 2'000'000'000) - 1'000'000'000;
        const std::uint64_t elapsed = random() % 86'400'000'000'000u;
        const ClockLine line = lineWithRate(virtual_i210::combineRates(ppt, 0));
        const FineTime time = evaluate(line, Wander{}, kBaseRawNs + elapsed);
        const long double gained =
            static_cast<long double>(time.ns - kBasePhcNs - static_cast<std::int64_t>(elapsed)) +
            static_cast<long double>(time.fraction) / 4294967296.0L;
        const long double expected =
            static_cast<long double>(elapsed) * static_cast<long double>(ppt) / 1e12L;
        ASSERT_NEAR(0.0, static_cast<double>(gained - expected), 1e-4);
    }
}

TEST(Clock, CombinesOwnRateAndAdjustmentAsAProduct) {
    const std::int64_t oneMillionth = 65'536;  // 1 ppm, scaled
    const long double combined =
        static_cast<long double>(virtual_i210::combineRates(100'000'000, 100 * oneMillionth)) /
        18446744073709551616.0L;
    EXPECT_NEAR(1.0001 * 1.0001 * 1e12 - 1e12, static_cast<double>(combined * 1e12L), 1e-2);
}

TEST(Clock, RebasingKeepsTheFraction) {
    const Wander wander{7, 50'000};
    ClockLine line = lineWithRate(virtual_i210::combineRates(37'000'123, 0));
    line.ownRatePpt = 37'000'123;
    line.wanderAtBase = wander.at(kBaseRawNs);
    ClockLine rebased = line;
    for (std::uint64_t raw = kBaseRawNs; raw < kBaseRawNs + 1'000'000'000u; raw += 999'983u) {
        rebased = virtual_i210::rebase(rebased, wander, raw, 37'000'123, 0);
    }
    const std::uint64_t end = kBaseRawNs + 2'000'000'000u;
    EXPECT_NEAR(static_cast<double>(evaluate(line, wander, end).ns),
                static_cast<double>(evaluate(rebased, wander, end).ns), 1.0);
}

TEST(Clock, WanderStaysWithinItsFrequency) {
    const Wander wander{3, 100'000};  // 100 ppb
    std::int64_t steepest = 0;
    for (std::uint64_t raw = 0; raw < 200'000'000'000u; raw += 100'000'000u) {
        const std::int64_t moved = wander.at(raw + 100'000'000u) - wander.at(raw);
        steepest = std::max(steepest, std::abs(moved) >> 32);
    }
    EXPECT_LE(steepest, 10);  // 100 ppb of 100 ms
    EXPECT_GE(steepest, 5);
}

TEST(Clock, WanderDependsOnTheSeedAlone) {
    EXPECT_EQ((Wander{3, 1000}.at(kBaseRawNs)), (Wander{3, 1000}.at(kBaseRawNs)));
    EXPECT_NE((Wander{4, 1000}.at(kBaseRawNs)), (Wander{3, 1000}.at(kBaseRawNs)));
    EXPECT_EQ(0, (Wander{3, 0}.at(kBaseRawNs)));
}

TEST(ClockBoardTest, KeepsTheLineThatWasInForce) {
    const auto board = std::make_unique<ClockBoard>();
    board->initialise(lineWithRate(0));
    for (std::uint64_t i = 1; i <= 3; ++i) {
        board->update([&](ClockLine line) {
            line.baseRawNs += 1000;
            line.basePhcNs += 5'000'000;
            return line;
        });
    }
    EXPECT_EQ(kBasePhcNs + 15'000'000, board->lineAt(kBaseRawNs + 3500).basePhcNs);
    EXPECT_EQ(kBasePhcNs + 5'000'000, board->lineAt(kBaseRawNs + 1500).basePhcNs);
    EXPECT_EQ(kBasePhcNs, board->lineAt(kBaseRawNs + 500).basePhcNs);
    EXPECT_EQ(kBasePhcNs, board->lineAt(kBaseRawNs - 500).basePhcNs);
}

TEST(ClockBoardTest, LosesNoUpdateOfConcurrentWriters) {
    const auto board = std::make_unique<ClockBoard>();
    board->initialise(ClockLine{});
    const auto addMany = [&board] {
        for (int i = 0; i < 20'000; ++i) {
            board->update([](ClockLine line) {
                ++line.basePhcNs;
                ++line.baseFraction;
                return line;
            });
        }
    };
    std::thread other(addMany);
    addMany();
    other.join();
    EXPECT_EQ(40'000, board->current().basePhcNs);
    EXPECT_EQ(40'000u, board->current().baseFraction);
}

}  // namespace
