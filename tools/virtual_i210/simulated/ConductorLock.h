#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include "tools/virtual_i210/simulated/Conductor.h"

namespace virtual_i210 {

/** Of this process; asked often, so told by the kernel only once. */
pid_t processId();

/** Held for some hundred nanoseconds, never across a wait. */
class Conductor::Lock {
public:
    explicit Lock(Conductor& conductor) : owner_(conductor.lockOwner_) {
        const auto self = static_cast<std::uint32_t>(processId());
        std::uint32_t seen = 0;
        for (unsigned tries = 1; !owner_.compare_exchange_weak(seen, self); ++tries) {
            // Whoever was killed while it held the lock never gives it back.
            if (tries % 10'000 == 0 && seen != 0 && isDead(static_cast<pid_t>(seen)) &&
                owner_.compare_exchange_strong(seen, self)) {
                return;
            }
            seen = 0;
            syscall(SYS_sched_yield);
        }
    }
    ~Lock() { owner_.store(0, std::memory_order_release); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    std::atomic<std::uint32_t>& owner_;
};

}  // namespace virtual_i210
