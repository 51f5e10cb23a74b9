#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/Faults.h"

namespace virtual_i210 {

/** Makes the cards of a configuration text (or of a file, see README.md) known to this process,
 *  creating their shared state when it is the first. Throws std::runtime_error with one line.
 *  Repeated calls keep the first configuration. */
void attach(const std::string& configText);

/** The same with the VIRTUAL_I210 variable; false when it is not set. */
bool attachFromEnvironment();

struct Card {
    std::string ifName;
    std::int32_t phcIndex = 0;
    double ratePpb = 0.0;       /**< own rate error now */
    double adjustmentPpb = 0.0; /**< set by clock_adjtime */
    double wanderPpb = 0.0;
    std::int64_t offsetNs = 0; /**< from the epoch at creation */
    std::uint32_t granularityNs = 0;
    std::uint32_t cableNs = 0;
    std::uint32_t jitterNs = 0;
    bool linkDown = false;
    bool phcHidden = false;
    bool txStampsOn = false;
    std::uint32_t rxFilter = 0;
};

struct Counters {
    std::uint64_t ptpFramesSent = 0;
    std::uint64_t eventFramesSent = 0;
    std::uint64_t txTimestamps = 0;
    std::uint64_t rxTimestamps = 0;
    std::uint64_t rxFallbacks = 0;
    std::uint64_t framesSwallowed = 0;
    std::uint64_t clockReadings = 0;
    std::uint64_t clockAdjustments = 0;
};

struct EventFrame {
    std::string ifName; /**< the sender */
    std::uint64_t rawNs = 0;
    unsigned messageType = 0;
    unsigned sequenceId = 0;
};

/** All of these attach by the environment when attach was not called, and throw std::runtime_error
 *  for an interface that is no card. */
std::vector<Card> cards();
Counters counters(const std::string& ifName);
/** Of all cards, oldest first. */
std::vector<EventFrame> latestEventFrames(std::size_t most);

/** The exact clock time of a card at an instant of CLOCK_MONOTONIC_RAW, without granularity or
 *  jitter; nothing for an interface that is no card. */
std::optional<std::uint64_t> truePhcNs(const char* ifName, std::uint64_t rawNs);

void orderFault(const std::string& ifName, const FaultOrder& order);
std::uint32_t remainingFaults(const std::string& ifName, Fault fault);
void setLink(const std::string& ifName, bool up);
void hidePhc(const std::string& ifName, bool hidden);

/** Lets the driver's answers fail with this errno; 0 allows them again. */
void refuseHwtstamp(const std::string& ifName, int errorNumber);
void refuseEthtool(const std::string& ifName, int errorNumber);

void clearFaults(const std::string& ifName);

void stepPhc(const std::string& ifName, std::int64_t deltaNs);
void setRatePpb(const std::string& ifName, double ratePpb);

}  // namespace virtual_i210
