#pragma once

#include <atomic>
#include <cstdint>

#include "tools/virtual_i210/State.h"

namespace virtual_i210 {

enum class DescriptorKind : std::uint8_t { kForeign, kPhc, kPacketSocket, kGenericNetlink };

/** The last of several equal frames that a socket was given, told by the instant of its sending. */
struct LastGiven {
    std::atomic<std::uint64_t> key{0};
    std::atomic<std::uint64_t> rawNs{0};
};

constexpr std::size_t kLastGivenEntries = 32;

/** What this process holds under one descriptor number. */
struct Descriptor {
    std::atomic<DescriptorKind> kind{DescriptorKind::kForeign};
    std::atomic<bool> writable{false};          /**< kPhc */
    std::atomic<std::uint32_t> card{0};         /**< kPhc: index of the card */
    std::atomic<std::uint32_t> stampFlags{0};   /**< kPacketSocket: as given for SO_TIMESTAMPING */
    std::atomic<std::uint64_t> createdRawNs{0}; /**< kPacketSocket */
    /** kPacketSocket: when the last frame was sent that it was given, whichever that was. */
    std::atomic<std::uint64_t> lastGivenRawNs{0};
    /** kPacketSocket: the last interface index looked up, and its card + 1 (0 for no card). */
    std::atomic<std::uint64_t> cardOfInterface{0};
    LastGiven lastGiven[kLastGivenEntries]; /**< kPacketSocket: by key */
};

/** The table covers the numbers that a process normally uses; higher ones are the kernel's
 *  alone. */
constexpr int kMaxDescriptors = 4096;

Descriptor* descriptorAt(int fd);

/** The entry when it is of this kind, else null. Costs one comparison and one load. */
Descriptor* descriptorOf(int fd, DescriptorKind kind);

void forget(int fd);
void copyDescriptor(int from, int to);

/** The shared state, attached at the first call that could concern a card; null without
 *  configuration. Ends the process with one line when the configuration is wrong. */
SharedState* stateForCall();

/** This process asked which device the card has. */
void noteAskedFor(const CardState& card);

/** The card behind a device. Where several have one number, each being the first of a simulated
 *  machine of its own, it is the one that this process asked for last. */
CardState* cardOfDevice(SharedState& state, std::int32_t phcIndex);

/** The card of an interface index as the socket's namespace knows it. */
CardState* cardOfInterface(int fd, Descriptor& socket, int interfaceIndex);

}  // namespace virtual_i210
