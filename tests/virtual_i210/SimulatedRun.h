#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/Sandbox.h"

constexpr std::uint64_t kMs = 1'000'000;
constexpr std::uint64_t kSecond = 1'000 * kMs;

/** Nothing but waiting takes time, so that instants are exact. */
inline const std::string kFreeOfCost =
    "cost_clock_ns=0 cost_call_ns=0 cost_wake_ns=0 cost_notify_ns=0 cost_wake_jitter_ns=0";

/** The test's process as one of a simulated run with these settings and cards. */
class SimulatedRun : public testing::Test {
protected:
    explicit SimulatedRun(const std::string& settings = kFreeOfCost + "; tsm0; tss0 cable_ns=500",
                          bool withCable = false);

    Sandbox sandbox_;
};

/** With interfaces tsm0 and tss0, and frames that take 500 ns. */
class SimulatedCable : public SimulatedRun {
protected:
    SimulatedCable() : SimulatedRun(kFreeOfCost + "; tsm0; tss0 cable_ns=500", true) {}
};

/** What a clock shows. */
std::uint64_t readNs(clockid_t clock);

/** CLOCK_MONOTONIC. */
std::uint64_t nowNs();

/** How long a call takes. */
std::uint64_t durationOf(const std::function<void()>& call);

timespec timespecOf(std::uint64_t ns);

/** This clock's time that is so far ahead. */
timespec ahead(clockid_t clock, std::uint64_t ns);

/** Sleeps, whatever signals come. */
void sleepNs(std::uint64_t ns);

/** A process of the run that ends with this result; -1 for one that was killed. */
pid_t startProcess(const std::function<int()>& body);
int resultOf(pid_t pid);

/** Notes that a signal came. */
void catchSignal(int number, int flags = 0);
int caughtSignals();
