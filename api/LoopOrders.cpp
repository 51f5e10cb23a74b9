#include "api/LoopOrders.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

namespace {

std::atomic<int> event{-1};
std::atomic<bool> endOrdered{false};
std::atomic<bool> sendOrdered{false};

}  // namespace

void loop_orders::open() {
    if (event.load() < 0) {
        event.store(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    endOrdered.store(false);
    sendOrdered.store(false);
}

int loop_orders::descriptor() {
    return event.load();
}

void loop_orders::notice() {
    const std::uint64_t one = 1;
    const int descriptor = event.load();
    if (descriptor >= 0 && write(descriptor, &one, sizeof one) < 0) {
        return;  // the counter is full: the loop is awake as it is
    }
}

void loop_orders::sendNow() {
    sendOrdered.store(true);
    notice();
}

void loop_orders::end() {
    endOrdered.store(true);
    notice();
}

void loop_orders::acknowledge() {
    std::uint64_t count = 0;
    if (read(event.load(), &count, sizeof count) < 0) {
        return;  // another order's write is still to come
    }
}

loop_orders::Orders loop_orders::take() {
    return {endOrdered.load(), sendOrdered.exchange(false)};
}
