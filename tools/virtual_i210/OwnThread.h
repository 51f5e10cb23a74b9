#pragma once

#include <pthread.h>

#include <cstdint>

#include "tools/virtual_i210/State.h"

/** The calling thread as one of a simulated run. Every door of the simulation begins with
 *  conducting(). */
namespace virtual_i210 {

/** The conductor, once this thread has its turn; a thread that the run does not know yet joins it.
 *  Null in real time, and at the end of a thread or process. */
Conductor* conducting();

/** Whether time is simulated, also for a thread at its end. */
inline bool timeIsSimulated() {
    return attachedConductor() != nullptr;
}

/** A clock of the simulated machine or of this process; false for one that it does not have. */
bool simulatedClock(clockid_t clock, std::uint64_t& ns);

/** The thread works, in a turn of its own. */
void charge(std::uint64_t ns);
void chargeCall();

/** While a clock is read: what it shows belongs to an instant anywhere within that time. */
class ClockReading {
public:
    ClockReading() {
        if (timeIsSimulated()) {
            begin();
        }
    }
    ~ClockReading() {
        if (restNs_ > 0) {
            charge(restNs_);
        }
    }
    ClockReading(const ClockReading&) = delete;
    ClockReading& operator=(const ClockReading&) = delete;

private:
    void begin();

    std::uint64_t restNs_ = 0;
};

/** Waits as told. A cancelled thread ends in it if `cancellable`; otherwise that reason is
 *  returned and keeps. */
std::uint32_t waitFor(const Wait& wait, bool cancellable = true);

/** Until that instant exactly, without the latency of a wake-up. */
void workUntil(std::uint64_t rawNs);

/** Another thread of this process may now go on. */
unsigned notifyWaiters(const void* object, unsigned most = UINT32_MAX);

/** This thread did something to a descriptor that others may wait for. */
void tellDescriptorWaiters();

/** Adopts a reserved place: the first thing that a new thread or process does. */
void beginAt(std::uint32_t slot);
/** Gives the turn back for good. */
void endThread();
void endProcess();
/** Before the process image is replaced: by one that enters the run again, or by one that is no
 *  part of it. */
void awaitNewImage();
void leaveForImage();

/** While one exists, the run goes on without this thread. */
class Outside {
public:
    Outside();
    ~Outside();
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

private:
    Conductor* conductor_;
};

}  // namespace virtual_i210
