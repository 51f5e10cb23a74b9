#include "tools/virtual_i210/EventRing.h"

#include <algorithm>

namespace virtual_i210 {

namespace {

std::uint64_t packDetails(const SentEvent& event) {
    return static_cast<std::uint64_t>(event.card) << 32 |
           static_cast<std::uint64_t>(event.sequenceId) << 16 |
           static_cast<std::uint64_t>(event.messageType) << 8 | (event.stamped ? 1u : 0u);
}

}  // namespace

void EventRing::note(const SentEvent& event) {
    const std::uint64_t number = head_.fetch_add(1, std::memory_order_acq_rel);
    Entry& entry = entries_[number % kEntries];
    entry.version.store(2 * number + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    entry.key.store(event.key, std::memory_order_relaxed);
    entry.rawNs.store(event.rawNs, std::memory_order_relaxed);
    entry.details.store(packDetails(event), std::memory_order_relaxed);
    entry.previous.store(buckets_[event.key % kBuckets].exchange(number + 1),
                         std::memory_order_relaxed);
    entry.version.store(2 * number + 2, std::memory_order_release);
}

std::optional<SentEvent> EventRing::read(std::uint64_t number) const {
    const Entry& entry = entries_[number % kEntries];
    const std::uint64_t complete = 2 * number + 2;
    if (entry.version.load(std::memory_order_acquire) != complete) {
        return std::nullopt;
    }
    SentEvent event;
    event.key = entry.key.load(std::memory_order_relaxed);
    event.rawNs = entry.rawNs.load(std::memory_order_relaxed);
    const std::uint64_t details = entry.details.load(std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (entry.version.load(std::memory_order_relaxed) != complete) {
        return std::nullopt;
    }
    event.card = static_cast<std::uint32_t>(details >> 32);
    event.sequenceId = static_cast<std::uint16_t>(details >> 16);
    event.messageType = static_cast<std::uint8_t>(details >> 8);
    event.stamped = (details & 1u) != 0;
    return event;
}

template <typename Visit>
bool EventRing::followBucket(std::uint64_t key, Visit visit) const {
    std::uint64_t next = buckets_[key % kBuckets].load(std::memory_order_acquire);
    while (next != 0 && next + kEntries > count()) {
        const Entry& entry = entries_[(next - 1) % kEntries];
        const auto event = read(next - 1);
        const std::uint64_t previous = entry.previous.load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (!event || entry.version.load(std::memory_order_relaxed) != 2 * next) {
            return false;
        }
        if (!visit(*event)) {
            return true;
        }
        next = previous;
    }
    return true;
}

template <typename Visit>
void EventRing::goBack(Visit visit) const {
    const std::uint64_t head = count();
    const std::uint64_t oldest = head > kEntries ? head - kEntries : 0;
    for (std::uint64_t number = head; number > oldest; --number) {
        const auto event = read(number - 1);
        if (event && !visit(*event)) {
            return;
        }
    }
}

std::optional<SentEvent> EventRing::find(std::uint64_t key, std::uint64_t arrivalRawNs,
                                         std::uint64_t sinceRawNs) const {
    // Several processes write, so entries stand only roughly in the order of their instants.
    constexpr std::uint64_t kDisorderNs = 10'000'000;
    std::optional<SentEvent> before;
    std::optional<SentEvent> after;
    const auto consider = [&](const SentEvent& event) {
        if (event.rawNs + kDisorderNs < sinceRawNs ||
            (before && event.rawNs + kDisorderNs < before->rawNs)) {
            return false;
        }
        if (event.key != key || event.rawNs < sinceRawNs) {
            return true;
        }
        if (event.rawNs > arrivalRawNs) {
            after = event;
        } else if (!before || event.rawNs > before->rawNs) {
            before = event;
        }
        return true;
    };
    if (!followBucket(key, consider)) {
        before.reset();
        after.reset();
        goBack(consider);
    }
    return before ? before : after;
}

std::optional<SentEvent> EventRing::firstOf(std::uint64_t key, std::uint64_t sinceRawNs) const {
    std::optional<SentEvent> first;
    followBucket(key, [&](const SentEvent& event) {
        if (event.rawNs < sinceRawNs) {
            return false;
        }
        first = event.key == key ? event : first;
        return true;
    });
    return first;
}

std::optional<SentEvent> EventRing::lastOf(std::uint64_t key, std::uint64_t sinceRawNs) const {
    std::optional<SentEvent> last;
    followBucket(key, [&](const SentEvent& event) {
        if (event.rawNs >= sinceRawNs && event.key == key) {
            last = event;
        }
        return event.rawNs >= sinceRawNs && !last;
    });
    return last;
}

std::vector<SentEvent> EventRing::latest(std::size_t most) const {
    const std::uint64_t head = count();
    const std::uint64_t wanted = std::min<std::uint64_t>({most, kEntries, head});
    std::vector<SentEvent> events;
    for (std::uint64_t number = head - wanted; number < head; ++number) {
        if (const auto event = read(number)) {
            events.push_back(*event);
        }
    }
    return events;
}

}  // namespace virtual_i210
