#include "tools/virtual_i210/simulated/Conductor.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using virtual_i210::Conductor;
using virtual_i210::kFirstInstantNs;
using virtual_i210::kMaxThreads;
using virtual_i210::kNever;
using virtual_i210::SimulatedCosts;
using virtual_i210::Wait;
using virtual_i210::WaitKind;

constexpr pid_t kOther = 99'999'999;  // no process can have this number

struct Release {
    void operator()(Conductor* conductor) const { std::free(conductor); }
};

std::unique_ptr<Conductor, Release> conductorOf(std::uint64_t seed,
                                                const SimulatedCosts& costs = {0, 0, 0, 0, 0, 0}) {
    auto* conductor = static_cast<Conductor*>(std::calloc(1, sizeof(Conductor)));
    conductor->initialise(seed, costs, 0);
    return std::unique_ptr<Conductor, Release>(conductor);
}

/** In which order eight threads that are due at the same instants get their turns. */
std::string orderOf(std::uint64_t seed) {
    const auto conductor = conductorOf(seed);
    const std::uint32_t own = conductor->enter(getpid());
    std::string order;
    std::vector<std::thread> threads;
    for (char name = 'a'; name < 'i'; ++name) {
        const std::uint32_t slot = conductor->reserve(getpid(), false);
        threads.emplace_back([&, slot, name] {
            conductor->begin(slot);
            conductor->awaitTurn(slot);
            for (std::uint64_t second = 1; second < 4; ++second) {
                conductor->sleepUntil(slot, kFirstInstantNs + second * 1'000'000'000);
                order += name;
            }
            conductor->leave(slot);
        });
    }
    conductor->sleepUntil(own, kFirstInstantNs + 10'000'000'000);
    conductor->leave(own);
    for (std::thread& thread : threads) {
        thread.join();
    }
    return order;
}

TEST(ConductorTest, OrdersTiesByTheSeed) {
    const std::string first = orderOf(1);
    EXPECT_EQ(24u, first.size());
    EXPECT_EQ(first, orderOf(1));
    EXPECT_NE(first, orderOf(2));
    EXPECT_NE(first.substr(0, 8), first.substr(8, 8)) << "the same thread is first at all instants";
}

TEST(ConductorTest, MovesTimeToTheEarliestWakeUp) {
    const auto conductor = conductorOf(1);
    const std::uint32_t own = conductor->enter(getpid());
    EXPECT_EQ(kFirstInstantNs, conductor->nowNs());
    conductor->sleepUntil(own, kFirstInstantNs + 77);
    EXPECT_EQ(kFirstInstantNs + 77, conductor->nowNs());
    conductor->sleepUntil(own, 5);
    EXPECT_EQ(kFirstInstantNs + 77, conductor->nowNs()) << "time never moves back";
}

/** A thread that sleeps until 100 ns after the beginning, and then notes the time. */
std::thread sleeperOf(Conductor& conductor, pid_t pid, std::uint64_t& seenNs) {
    const std::uint32_t slot = conductor.reserve(pid, false);
    return std::thread([&conductor, &seenNs, slot] {
        conductor.begin(slot);
        conductor.awaitTurn(slot);
        conductor.sleepUntil(slot, kFirstInstantNs + 100);
        seenNs = conductor.nowNs();
        conductor.leave(slot);
    });
}

TEST(ConductorTest, TakesTheTurnFromWhoeverWorksPastAWakeUp) {
    const auto conductor = conductorOf(1);
    const std::uint32_t own = conductor->enter(getpid());
    std::uint64_t seenNs = 0;
    std::thread other = sleeperOf(*conductor, getpid(), seenNs);
    conductor->sleepUntil(own, kFirstInstantNs + 1);
    conductor->charge(own, 500);
    EXPECT_EQ(kFirstInstantNs + 100, seenNs);
    EXPECT_EQ(kFirstInstantNs + 501, conductor->nowNs());
    other.join();
}

/** Work that only this process sees need not be interleaved with that of others. */
TEST(ConductorTest, LetsAnotherProcessGoFirstOnlyWhereItCouldTell) {
    const auto conductor = conductorOf(1);
    const std::uint32_t own = conductor->enter(getpid());
    std::uint64_t seenNs = 0;
    std::thread other = sleeperOf(*conductor, kOther, seenNs);
    conductor->sleepUntil(own, kFirstInstantNs + 1);
    conductor->charge(own, 500);
    EXPECT_EQ(0U, seenNs);
    conductor->settle(own);
    EXPECT_EQ(kFirstInstantNs + 100, seenNs);
    EXPECT_EQ(kFirstInstantNs + 501, conductor->nowNs());
    other.join();
}

/** A thread of a process that ends may not yet know that its place has been given away. */
TEST(ConductorTest, GivesTheTurnToTheNewThreadOfAPlace) {
    // Never destroyed: the stale thread waits in it until the process has ended.
    static const auto& conductor = *new auto(conductorOf(1));
    const std::uint32_t own = conductor->enter(getpid());
    const std::uint32_t slot = conductor->reserve(kOther, false);
    std::atomic<bool> staleRan{false};
    std::atomic<bool> staleWaits{false};
    std::thread stale([&] {
        conductor->begin(slot);
        staleWaits = true;
        conductor->awaitTurn(slot);
        staleRan = true;
    });
    while (!staleWaits) {
        std::this_thread::yield();
    }
    conductor->leaveProcess(kOther);
    ASSERT_EQ(slot, conductor->reserve(kOther, false));
    bool newRan = false;
    std::thread fresh([&] {
        conductor->begin(slot);
        conductor->awaitTurn(slot);
        newRan = true;
        conductor->leave(slot);
    });
    conductor->sleepUntil(own, kFirstInstantNs + 1);
    EXPECT_TRUE(newRan);
    EXPECT_FALSE(staleRan);
    fresh.join();
    // Ends with the process, as the thread of one that ends does.
    stale.detach();
}

/** Latencies of a thousand wake-ups. */
std::vector<std::uint64_t> latenciesOf(const SimulatedCosts& costs) {
    const auto conductor = conductorOf(7, costs);
    const std::uint32_t own = conductor->enter(getpid());
    std::vector<std::uint64_t> latencies;
    for (int i = 0; i < 1000; ++i) {
        Wait wait;
        wait.dueNs = conductor->nowNs() + 1'000'000'000;
        conductor->wait(own, wait);
        latencies.push_back(conductor->nowNs() - wait.dueNs);
    }
    return latencies;
}

TEST(ConductorTest, WakesAtOnceWithoutCosts) {
    for (const std::uint64_t latency : latenciesOf({0, 0, 0, 0, 0, 0})) {
        ASSERT_EQ(0u, latency);
    }
}

TEST(ConductorTest, WakesAfterTheLatencyAndItsJitter) {
    const auto latencies = latenciesOf({0, 0, 50'000, 0, 8'000, 0});
    const auto [least, most] = std::minmax_element(latencies.begin(), latencies.end());
    EXPECT_GE(*least, 50'000u);
    EXPECT_LT(*least, 51'000u);
    EXPECT_GT(*most, 58'000u) << "a few take several times as long";
    EXPECT_LE(*most, 50'000u + 41 * 8'000u);
    EXPECT_EQ(latencies, latenciesOf({0, 0, 50'000, 0, 8'000, 0}));
}

TEST(ConductorTest, WakesLateUnderLoad) {
    const auto latencies = latenciesOf({0, 0, 0, 0, 0, 100});
    const auto [least, most] = std::minmax_element(latencies.begin(), latencies.end());
    EXPECT_LT(*least, 1'000'000u);
    EXPECT_GT(*most, 25'000'000u);
    EXPECT_LE(*most, 30'000'000u);
    const auto half = latenciesOf({0, 0, 0, 0, 0, 50});
    EXPECT_NEAR(500.0, static_cast<double>(std::count(half.begin(), half.end(), 0u)), 60.0);
}

TEST(ConductorTest, NotifiesTheOldestWaiterOfAnObject) {
    const auto conductor = conductorOf(1);
    const std::uint32_t own = conductor->enter(getpid());
    std::string woken;
    std::vector<std::thread> threads;
    for (const char name : {'a', 'b'}) {
        const std::uint32_t slot = conductor->reserve(getpid(), false);
        threads.emplace_back([&, slot, name] {
            conductor->begin(slot);
            conductor->awaitTurn(slot);
            conductor->wait(slot, {WaitKind::kObject, 4711, kNever, false});
            woken += name;
            conductor->leave(slot);
        });
        conductor->sleepUntil(own, conductor->nowNs() + 10);
    }
    EXPECT_EQ(0u, conductor->notify(getpid(), 4712, 1));
    EXPECT_EQ(0u, conductor->notify(kOther, 4711, 1));
    EXPECT_EQ(1u, conductor->notify(getpid(), 4711, 1));
    conductor->sleepUntil(own, conductor->nowNs() + 10);
    EXPECT_EQ("a", woken);
    EXPECT_EQ(1u, conductor->notify(getpid(), 4711, 5));
    conductor->leave(own);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ("ab", woken);
}

TEST(ConductorTest, RemembersWhichProcessesEnded) {
    const auto conductor = conductorOf(1);
    conductor->enter(getpid());
    conductor->setProcess(conductor->reserve(0, true), kOther);
    EXPECT_TRUE(conductor->hasThreads(kOther));
    EXPECT_FALSE(conductor->hasEnded(kOther));
    conductor->leaveProcess(kOther);
    EXPECT_FALSE(conductor->hasThreads(kOther));
    EXPECT_TRUE(conductor->hasEnded(kOther));
    conductor->setProcess(conductor->reserve(0, true), kOther);
    EXPECT_FALSE(conductor->hasEnded(kOther)) << "another process got its number";
}

TEST(ConductorTest, GoesOnWhenTheOneWhoseTurnItIsDoesNotLive) {
    const auto conductor = conductorOf(1);
    const std::uint32_t own = conductor->enter(getpid());
    conductor->setProcess(conductor->reserve(0, true), kOther);
    conductor->sleepUntil(own, kFirstInstantNs + 10);
    EXPECT_EQ(kFirstInstantNs + 10, conductor->nowNs());
    EXPECT_FALSE(conductor->hasThreads(kOther));
}

TEST(ConductorTest, ReusesThePlacesOfThoseWhoLeft) {
    const auto conductor = conductorOf(1);
    conductor->enter(getpid());
    for (std::size_t i = 0; i < 3 * kMaxThreads; ++i) {
        conductor->leave(conductor->reserve(getpid(), false));
    }
    EXPECT_EQ(2u, conductor->slotEnd());
}

TEST(ConductorTest, HasRoomForItsThreads) {
    const auto conductor = conductorOf(1);
    const std::uint32_t own = conductor->enter(getpid());
    for (std::size_t i = 1; i < kMaxThreads; ++i) {
        conductor->reserve(getpid(), false);
    }
    conductor->leave(kMaxThreads - 1);
    EXPECT_EQ(kMaxThreads - 1, conductor->reserve(getpid(), false));
    conductor->leave(own);
}

TEST(ConductorDeathTest, EndsARunOfTooManyThreads) {
    const auto conductor = conductorOf(1);
    for (std::size_t i = 0; i < kMaxThreads; ++i) {
        conductor->reserve(getpid(), false);
    }
    EXPECT_EXIT(conductor->reserve(getpid(), false), testing::KilledBySignal(SIGABRT),
                "more than 4096 threads in one simulated run");
}

}  // namespace
