#pragma once

#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "tools/virtual_i210/Instants.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/Timers.h"

namespace virtual_i210 {

/** What a thread waits for at its descriptors. */
struct Interest {
    std::uint64_t card = 0; /**< card + 1 whose socket is among them, kEveryCard for several */
    bool others = false;    /**< also descriptors that are no cards' */

    void add(const Interest& another) {
        others = others || another.others;
        if (another.card != 0) {
            card = card == 0 || card == another.card ? another.card : kEveryCard;
        }
    }
};

/** Signals are blocked as told while one exists; as before when nothing is told. */
class OtherMask {
public:
    explicit OtherMask(const sigset_t* mask) : changed_(mask != nullptr) {
        if (changed_) {
            pthread_sigmask(SIG_SETMASK, mask, &before_);
        }
    }
    ~OtherMask() {
        if (changed_) {
            pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        }
    }
    OtherMask(const OtherMask&) = delete;
    OtherMask& operator=(const OtherMask&) = delete;

private:
    bool changed_;
    sigset_t before_{};
};

/** What a wait for this descriptor is a wait for. */
Interest interestIn(int fd);

/** When the next frame that the kernel already holds for this socket will have come through the
 *  cable; 0 when none has to be waited for. */
std::uint64_t frameOnItsWayNs(int fd);

/** When a receiving call on this descriptor gives up: the present if it does not wait at all. */
std::uint64_t receiveEndNs(int fd, int flags);

/** Something for the sockets of this card's network has been handed to the kernel now: they look
 *  when the cables let it through. */
void announceFrame(std::uint32_t card);

/** The same of a frame, which is also captured. */
void frameLeft(std::uint32_t card, const std::uint8_t* frame, std::size_t length);

/** Asks `lookNow`, which returns as the call does that it stands for but never waits, until it has
 *  something or the time is over. `lookNow` may ask for an earlier look by its argument, and meets
 *  the signals that came before the wait itself; `mask` holds during the wait. */
template <typename Look>
int waitForDescriptors(Interest interest, std::uint64_t endNs, Look lookNow,
                       const sigset_t* mask = nullptr) {
    // What comes from outside the simulated run is noticed with this delay.
    constexpr std::uint64_t kOutsideNs = 100'000'000;
    for (;;) {
        fireTimers();
        std::uint64_t lookAgainNs = std::min(endNs, nextTimerNs());
        const int result = lookNow(lookAgainNs);
        if (result != 0) {
            return result;
        }
        if (rawNowNs() >= endNs) {
            return 0;
        }
        if (interest.others) {
            lookAgainNs = std::min(lookAgainNs, rawNowNs() + kOutsideNs);
        }
        const OtherMask whileWaiting(mask);
        const std::uint32_t woken =
            waitFor({WaitKind::kDescriptors, interest.card, lookAgainNs, interest.others});
        if ((woken & kWokenBySignal) != 0) {
            return failWith(EINTR);
        }
        // Frames tell of themselves, so that the end of the time needs no look.
        if (woken == kWokenByTime && !interest.others && rawNowNs() >= endNs) {
            return 0;
        }
    }
}

/** Repeats a receiving call, made so that it does not block, until it has a result. */
template <typename Call>
ssize_t receiveInTurn(int fd, int flags, Call callNow) {
    chargeCall();
    ssize_t result = -1;
    std::uint64_t endNs = kNever;
    bool tried = false;
    const auto look = [&](std::uint64_t& lookAgainNs) {
        const std::uint64_t visibleNs = (flags & MSG_ERRQUEUE) != 0 ? 0 : frameOnItsWayNs(fd);
        lookAgainNs = visibleNs == 0 ? lookAgainNs : std::min(lookAgainNs, visibleNs);
        result = visibleNs == 0 ? callNow() : failWith(EAGAIN);
        if (result >= 0 || errno != EAGAIN) {
            return 1;
        }
        endNs = tried ? endNs : receiveEndNs(fd, flags);
        tried = true;
        lookAgainNs = std::min(lookAgainNs, endNs);
        return rawNowNs() >= endNs ? 1 : 0;
    };
    int ended = 0;
    do {
        ended = waitForDescriptors(interestIn(fd), kNever, look);
    } while (ended < 0 && errno == EINTR && endNs == kNever && signalRestartsCall());
    return ended < 0 ? -1 : result;
}

}  // namespace virtual_i210
