#include "tools/virtual_i210/EventRing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

namespace {

using virtual_i210::EventRing;
using virtual_i210::SentEvent;

SentEvent eventAt(std::uint64_t key, std::uint64_t rawNs) {
    SentEvent event;
    event.key = key;
    event.rawNs = rawNs;
    event.card = 3;
    event.sequenceId = 0xABCD;
    event.messageType = 2;
    event.stamped = true;
    return event;
}

TEST(EventRingTest, GivesBackWhatWasNoted) {
    const auto ring = std::make_unique<EventRing>();
    ring->note(eventAt(77, 1000));
    const auto found = ring->find(77, 2000, 0);
    ASSERT_TRUE(found);
    EXPECT_EQ(1000u, found->rawNs);
    EXPECT_EQ(3u, found->card);
    EXPECT_EQ(0xABCD, found->sequenceId);
    EXPECT_EQ(2, found->messageType);
    EXPECT_TRUE(found->stamped);
    EXPECT_FALSE(ring->find(78, 2000, 0));
}

TEST(EventRingTest, TellsEqualFramesApartByTheirArrival) {
    const auto ring = std::make_unique<EventRing>();
    ring->note(eventAt(77, 1000));
    ring->note(eventAt(77, 3000));
    EXPECT_EQ(1000u, ring->find(77, 2000, 0)->rawNs);
    EXPECT_EQ(3000u, ring->find(77, 4000, 0)->rawNs);
}

TEST(EventRingTest, TakesTheNextWhenTheArrivalIsTooEarly) {
    const auto ring = std::make_unique<EventRing>();
    ring->note(eventAt(77, 1000));
    ring->note(eventAt(77, 3000));
    EXPECT_EQ(1000u, ring->find(77, 500, 0)->rawNs);
}

TEST(EventRingTest, GivesNothingFromBeforeTheReceiver) {
    const auto ring = std::make_unique<EventRing>();
    ring->note(eventAt(77, 1000));
    EXPECT_FALSE(ring->find(77, 2000, 1500));
}

TEST(EventRingTest, GivesTheFirstAndTheLastOfAKey) {
    const auto ring = std::make_unique<EventRing>();
    constexpr std::uint64_t kSameBucket = 77 + 1024;
    for (std::uint64_t rawNs = 1000; rawNs < 5000; rawNs += 1000) {
        ring->note(eventAt(77, rawNs));
        ring->note(eventAt(kSameBucket, rawNs + 1));
    }
    EXPECT_EQ(1000u, ring->firstOf(77, 0)->rawNs);
    EXPECT_EQ(2000u, ring->firstOf(77, 1001)->rawNs);
    EXPECT_EQ(2000u, ring->firstOf(77, 2000)->rawNs);
    EXPECT_EQ(4000u, ring->lastOf(77, 0)->rawNs);
    EXPECT_EQ(4001u, ring->lastOf(kSameBucket, 0)->rawNs);
    EXPECT_FALSE(ring->firstOf(77, 4001));
    EXPECT_FALSE(ring->lastOf(77, 4001));
    EXPECT_FALSE(ring->firstOf(77 + 2 * 1024, 0));
    EXPECT_FALSE(ring->lastOf(78, 0));
}

TEST(EventRingTest, ForgetsTheFirstOfAKeyToo) {
    const auto ring = std::make_unique<EventRing>();
    for (std::uint64_t i = 0; i <= EventRing::kEntries; ++i) {
        ring->note(eventAt(i < 2 ? 77 : 78, 1000 + i));
    }
    EXPECT_EQ(1001u, ring->firstOf(77, 0)->rawNs);
    EXPECT_EQ(1001u, ring->lastOf(77, 0)->rawNs);
    ring->note(eventAt(78, 9000));
    EXPECT_FALSE(ring->firstOf(77, 0));
    EXPECT_FALSE(ring->lastOf(77, 0));
}

TEST(EventRingTest, ForgetsTheOldest) {
    const auto ring = std::make_unique<EventRing>();
    for (std::uint64_t i = 0; i <= EventRing::kEntries; ++i) {
        ring->note(eventAt(i, 1000 + i));
    }
    EXPECT_FALSE(ring->find(0, 100'000, 0));
    EXPECT_TRUE(ring->find(1, 100'000, 0));
    EXPECT_EQ(EventRing::kEntries - 1, ring->latest(2).front().key);
    EXPECT_EQ(EventRing::kEntries, ring->latest(2 * EventRing::kEntries).size());
}

TEST(EventRingTest, FindsWhatWasNotedBeforeAnEntryThatIsBeingWritten) {
    const auto ring = std::make_unique<EventRing>();
    ring->note(eventAt(77, 1000));
    ring->note(eventAt(77, 3000));
    // As another process would have left it in the middle: entries follow head and buckets.
    constexpr std::size_t kSecondEntry = 8 + 1024 * 8 + 40;
    constexpr std::uint64_t kBeingWritten = 2 * 1 + 1;
    std::memcpy(reinterpret_cast<char*>(ring.get()) + kSecondEntry, &kBeingWritten,
                sizeof kBeingWritten);
    ASSERT_TRUE(ring->find(77, 4000, 0));
    EXPECT_EQ(1000u, ring->find(77, 4000, 0)->rawNs);
}

TEST(EventRingTest, TakesEntriesOfSeveralWriters) {
    const auto ring = std::make_unique<EventRing>();
    constexpr std::uint64_t kEach = EventRing::kEntries / 2;
    const auto write = [&ring](std::uint64_t firstKey) {
        for (std::uint64_t i = 0; i < kEach; ++i) {
            ring->note(eventAt(firstKey + i, 1000));
        }
    };
    std::thread other(write, 1'000'000u);
    write(2'000'000u);
    other.join();
    for (std::uint64_t i = 0; i < kEach; ++i) {
        ASSERT_TRUE(ring->find(1'000'000u + i, 2000, 0)) << i;
        ASSERT_TRUE(ring->find(2'000'000u + i, 2000, 0)) << i;
    }
}

}  // namespace
