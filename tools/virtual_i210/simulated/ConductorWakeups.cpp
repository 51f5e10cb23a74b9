#include <algorithm>

#include "tools/virtual_i210/simulated/ConductorLock.h"

/** What ends another thread's wait. */

namespace virtual_i210 {

/** Whoever is woken already needs no notification, which another waiter may need. */
constexpr std::uint32_t kGoesOn = kWokenByNotice | kWokenByCancel;

unsigned Conductor::notify(pid_t pid, std::uint64_t object, unsigned most) {
    const Lock lock(*this);
    unsigned woken = 0;
    while (woken < most) {
        std::uint32_t oldest = kMaxThreads;
        for (std::uint32_t i = 0; i < slotEnd_; ++i) {
            const ThreadSlot& slot = slots_[i];
            if (slot.state == ThreadState::kWaiting && slot.waitKind == WaitKind::kObject &&
                slot.pid == pid && slot.object == object && (slot.woken & kGoesOn) == 0 &&
                (oldest == kMaxThreads || slot.waitNumber < slots_[oldest].waitNumber)) {
                oldest = i;
            }
        }
        if (oldest == kMaxThreads) {
            break;
        }
        wakeAt(oldest, nowNs() + noticeLatencyNs(), kWokenByNotice);
        ++woken;
    }
    return woken;
}

void Conductor::goOn() {
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        if (running_.load() == 0 && nextDueNs_.load() != kNever) {
            next = passTurn();
        }
    }
    hand(next);
}

template <typename Instant>
void Conductor::wakeReaders(Instant instantFor) {
    const Lock lock(*this);
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        const ThreadSlot& slot = slots_[i];
        if (slot.state != ThreadState::kWaiting || slot.waitKind != WaitKind::kDescriptors ||
            (slot.woken & kWokenByNotice) != 0) {
            continue;
        }
        const std::uint64_t fromNs = instantFor(slot);
        if (fromNs != kNever) {
            wakeAt(i, fromNs + noticeLatencyNs(), kWokenByNotice);
        }
    }
}

void Conductor::framesVisible(const std::uint64_t* atNs, std::uint32_t cards) {
    for (std::uint32_t i = 0; i < cards; ++i) {
        if (atNs[i] != kNever) {
            visibleNs_[i] = std::max(visibleNs_[i], atNs[i]);
        }
    }
    const std::uint64_t now = nowNs();
    wakeReaders([=](const ThreadSlot& slot) {
        return slot.object == kEveryCard ? now : slot.object == 0 ? kNever : atNs[slot.object - 1];
    });
}

void Conductor::descriptorsChanged() {
    if (anyDescriptorWaits_ > 0) {
        const std::uint64_t now = nowNs();
        wakeReaders([=](const ThreadSlot& slot) { return slot.anyDescriptor != 0 ? now : kNever; });
    }
}

void Conductor::cancelled(pid_t pid, std::uint64_t handle) {
    const Lock lock(*this);
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        if (slots_[i].state == ThreadState::kWaiting && slots_[i].waitKind != WaitKind::kTurn &&
            slots_[i].pid == pid && slots_[i].handle == handle) {
            wakeAt(i, nowNs() + noticeLatencyNs(), kWokenByCancel);
        }
    }
}

void Conductor::signalled(pid_t pid, std::uint32_t interrupted, int number) {
    const Lock lock(*this);
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        const ThreadSlot& slot = slots_[i];
        if (slot.state != ThreadState::kWaiting || slot.pid != pid) {
            continue;
        }
        if (slot.waitKind == WaitKind::kSignal) {
            wakeAt(i, nowNs() + noticeLatencyNs(), kWokenByNotice);
        } else if (i == interrupted && slot.waitKind != WaitKind::kTurn) {
            wakeAt(i, nowNs() + noticeLatencyNs(),
                   kWokenBySignal | static_cast<std::uint32_t>(number) << kSignalShift);
        }
    }
}

void Conductor::stop(pid_t pid) {
    const Lock lock(*this);
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        ThreadSlot& slot = slots_[i];
        if (slot.state == ThreadState::kWaiting && slot.pid == pid) {
            slot.state = ThreadState::kStopped;
            dueNs_[i] = kNever;
        }
    }
}

/** What happened meanwhile woke nobody: all look again. */
void Conductor::resume(pid_t pid) {
    const Lock lock(*this);
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        if (slots_[i].state == ThreadState::kStopped && slots_[i].pid == pid) {
            setWaiting(i, nowNs() + noticeLatencyNs());
        }
    }
}

}  // namespace virtual_i210
