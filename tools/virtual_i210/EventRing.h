#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace virtual_i210 {

/** One frame as it left a card: an event message, or a general one that the sender wanted
 *  stamped. */
struct SentEvent {
    std::uint64_t key = 0;
    std::uint64_t rawNs = 0;
    std::uint32_t card = 0;
    std::uint16_t sequenceId = 0;
    std::uint8_t messageType = 0;
    bool stamped = false; /**< a transmit timestamp was asked for */
};

/** The last such frames of all cards. Writers never wait; a reader skips an entry that is being
 *  written. */
class EventRing {
public:
    static constexpr std::size_t kEntries = 4096;

    void note(const SentEvent& event);

    /** The frame with this key that was sent last before it arrived at arrivalRawNs. When clocks
     *  were stepped in between and none fits, the first one sent after that; never one sent before
     *  sinceRawNs. */
    std::optional<SentEvent> find(std::uint64_t key, std::uint64_t arrivalRawNs,
                                  std::uint64_t sinceRawNs) const;

    /** The first frame with this key that was sent at sinceRawNs or later, and the last one. Only
     *  where one thread at a time notes and asks. */
    std::optional<SentEvent> firstOf(std::uint64_t key, std::uint64_t sinceRawNs) const;
    std::optional<SentEvent> lastOf(std::uint64_t key, std::uint64_t sinceRawNs) const;

    /** Oldest first, at most `most`. */
    std::vector<SentEvent> latest(std::size_t most) const;

    std::uint64_t count() const { return head_.load(std::memory_order_acquire); }

private:
    struct Entry {
        std::atomic<std::uint64_t> version; /**< 2 x number + 2 when complete */
        std::atomic<std::uint64_t> key;
        std::atomic<std::uint64_t> rawNs;
        std::atomic<std::uint64_t> details;
        std::atomic<std::uint64_t> previous; /**< number + 1 of the one before in its bucket */
    };

    std::optional<SentEvent> read(std::uint64_t number) const;

    /** Shows visit the entries of the key's bucket, the latest first, until it returns false. False
     *  when one on the way is being written, so that those behind it cannot be told. */
    template <typename Visit>
    bool followBucket(std::uint64_t key, Visit visit) const;

    /** The same of all entries, leaving out those being written. */
    template <typename Visit>
    void goBack(Visit visit) const;

    static constexpr std::size_t kBuckets = 1024;

    std::atomic<std::uint64_t> head_;
    std::atomic<std::uint64_t> buckets_[kBuckets]; /**< number + 1 of the last one by key */
    Entry entries_[kEntries];
};

static_assert(sizeof(EventRing) == 8 + 1024 * 8 + EventRing::kEntries * 40);
static_assert(alignof(EventRing) == 8);

}  // namespace virtual_i210
