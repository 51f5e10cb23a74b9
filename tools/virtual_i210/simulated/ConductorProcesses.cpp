#include <algorithm>
#include <iterator>

#include "tools/virtual_i210/simulated/ConductorLock.h"

/** Processes of a run: how they come in, are replaced and end. */

namespace virtual_i210 {

void Conductor::freeProcess(pid_t pid) {
    ended_[endedCount_++ % kEndedProcesses] = pid;
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        if (slots_[i].state != ThreadState::kFree && slots_[i].pid == pid) {
            free(i);
        } else if (slots_[i].state == ThreadState::kWaiting &&
                   slots_[i].waitKind == WaitKind::kProcess &&
                   slots_[i].object == static_cast<std::uint64_t>(pid)) {
            wakeAt(i, nowNs() + noticeLatencyNs(), kWokenByNotice);
        }
    }
}

void Conductor::setProcess(std::uint32_t slot, pid_t pid) {
    const Lock lock(*this);
    setPid(slot, pid);
    // The number may be that of an earlier process.
    std::replace(std::begin(ended_), std::end(ended_), static_cast<std::int32_t>(pid), 0);
}

/** A new image has one thread; that of a program which took very long to load lost its turn. */
void Conductor::adopt(std::uint32_t number) {
    for (std::uint32_t i = 0; i < slotEnd_; ++i) {
        if (i != number && slots_[i].state != ThreadState::kFree &&
            slots_[i].pid == slots_[number].pid) {
            free(i);
        }
    }
    if (slots_[number].state == ThreadState::kOutside) {
        slots_[number].turn.store(0);
        setWaiting(number, nowNs());
    }
}

std::uint32_t Conductor::enter(pid_t pid) {
    std::uint32_t number = kMaxThreads;
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        for (std::uint32_t i = 0; i < slotEnd_ && number == kMaxThreads; ++i) {
            const ThreadSlot& slot = slots_[i];
            if (slot.awaitsProcess != 0 && slot.pid == pid && slot.state != ThreadState::kFree) {
                number = i;
            }
        }
        if (number == kMaxThreads) {
            number = allocate(pid);
        } else {
            adopt(number);
        }
        slots_[number].awaitsProcess = 0;
        if (running_.load() == 0) {
            next = passTurn();
        }
    }
    begin(number);
    hand(next);
    awaitTurn(number);
    return number;
}

void Conductor::leaveProcess(pid_t pid) {
    std::uint32_t next = kMaxThreads;
    {
        const Lock lock(*this);
        freeProcess(pid);
        if (running_.load() == 0) {
            next = passTurn();
        }
    }
    hand(next);
}

bool Conductor::hasThreads(pid_t pid) {
    const Lock lock(*this);
    return std::any_of(slots_, slots_ + slotEnd_, [=](const ThreadSlot& slot) {
        return slot.state != ThreadState::kFree && slot.pid == pid;
    });
}

bool Conductor::hasEnded(pid_t pid) {
    const Lock lock(*this);
    return std::find(std::begin(ended_), std::end(ended_), pid) != std::end(ended_);
}

void Conductor::awaitNewImage(std::uint32_t number) {
    std::uint32_t next = 0;
    {
        const Lock lock(*this);
        slots_[number].awaitsProcess = 1;
        setWaiting(number, nowNs());
        next = passTurn();
    }
    hand(next);
}

}  // namespace virtual_i210
