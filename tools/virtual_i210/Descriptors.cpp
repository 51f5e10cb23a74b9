#include "tools/virtual_i210/Descriptors.h"

#include <net/if.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace virtual_i210 {

namespace {

Descriptor descriptors[kMaxDescriptors];
std::atomic<std::uint32_t> lastAskedFor{0}; /**< card + 1 */

/** A wrong configuration is told at start, not at the first frame. */
__attribute__((constructor)) void attachAtStart() {
    readSystemClock = real().clockGettime;
    stateForCall();
    // In a simulated run a program begins when it has its first turn.
    conducting();
}

CardState* lookUpCard(int fd, int interfaceIndex) {
    ifreq request{};
    request.ifr_ifindex = interfaceIndex;
    const int savedErrno = errno;
    if (real().ioctl(fd, SIOCGIFNAME, &request) != 0) {
        errno = savedErrno;
        return nullptr;
    }
    return attachedState()->findCard(request.ifr_name);
}

}  // namespace

Descriptor* descriptorAt(int fd) {
    return fd >= 0 && fd < kMaxDescriptors ? &descriptors[fd] : nullptr;
}

Descriptor* descriptorOf(int fd, DescriptorKind kind) {
    Descriptor* descriptor = descriptorAt(fd);
    const bool matches =
        descriptor != nullptr && descriptor->kind.load(std::memory_order_acquire) == kind;
    return matches ? descriptor : nullptr;
}

void forget(int fd) {
    Descriptor* descriptor = descriptorAt(fd);
    if (descriptor != nullptr && descriptor->kind.load() != DescriptorKind::kForeign) {
        descriptor->kind.store(DescriptorKind::kForeign, std::memory_order_release);
    }
}

void copyDescriptor(int from, int to) {
    const Descriptor* source = descriptorAt(from);
    Descriptor* target = descriptorAt(to);
    if (source == nullptr || target == nullptr || source == target) {
        return;
    }
    target->writable.store(source->writable.load());
    target->card.store(source->card.load());
    target->stampFlags.store(source->stampFlags.load());
    target->createdRawNs.store(source->createdRawNs.load());
    target->cardOfInterface.store(source->cardOfInterface.load());
    target->kind.store(source->kind.load(), std::memory_order_release);
}

SharedState* stateForCall() {
    try {
        attachFromEnvironment();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        std::fflush(stderr);
        _exit(1);
    }
    return attachedState();
}

void noteAskedFor(const CardState& card) {
    lastAskedFor.store(attachedState()->indexOf(card) + 1);
}

CardState* cardOfDevice(SharedState& state, std::int32_t phcIndex) {
    const std::uint32_t asked = lastAskedFor.load();
    CardState* card = asked == 0 ? nullptr : &state.cards[asked - 1];
    return card != nullptr && card->phcIndex == phcIndex ? card : state.findPhc(phcIndex);
}

CardState* cardOfInterface(int fd, Descriptor& socket, int interfaceIndex) {
    SharedState* state = attachedState();
    if (state == nullptr || interfaceIndex <= 0) {
        return nullptr;
    }
    const auto index = static_cast<std::uint64_t>(interfaceIndex);
    std::uint64_t known = socket.cardOfInterface.load(std::memory_order_acquire);
    if (known >> 32 != index) {
        const CardState* card = lookUpCard(fd, interfaceIndex);
        known = index << 32 | (card == nullptr ? 0 : state->indexOf(*card) + 1);
        socket.cardOfInterface.store(known, std::memory_order_release);
    }
    const auto number = static_cast<std::uint32_t>(known);
    return number == 0 ? nullptr : &state->cards[number - 1];
}

}  // namespace virtual_i210
