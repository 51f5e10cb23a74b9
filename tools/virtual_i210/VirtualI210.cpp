#include "tools/virtual_i210/VirtualI210.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <mutex>

#include "tools/virtual_i210/State.h"

namespace virtual_i210 {

namespace {

constexpr unsigned kFirstGeneralMessage = 8;

std::atomic<SharedState*> sharedState{nullptr};
std::mutex attachMutex;

CardState& cardNamed(const std::string& ifName) {
    if (!attachFromEnvironment()) {
        throw std::runtime_error(std::string(kConfigVariable) +
                                 " is not set; describe the cards in it first");
    }
    CardState* card = attachedState()->findCard(ifName.c_str());
    if (card == nullptr) {
        throw std::runtime_error("'" + ifName + "' is not a card of " + kConfigVariable +
                                 "; name one of its interfaces");
    }
    return *card;
}

Card describe(const CardState& state) {
    const ClockLine line = state.clock.current();
    Card card;
    card.ifName = state.ifName;
    card.phcIndex = state.phcIndex;
    card.ratePpb = static_cast<double>(line.ownRatePpt) / 1000.0;
    card.adjustmentPpb = static_cast<double>(line.adjustmentScaledPpm) * 1000.0 / 65536.0;
    card.wanderPpb = static_cast<double>(state.wanderPpt) / 1000.0;
    card.offsetNs = state.offsetNs;
    card.granularityNs = state.granularityNs;
    card.cableNs = state.cableNs;
    card.jitterNs = state.jitterNs;
    card.linkDown = state.faults.linkDown.load() != 0;
    card.phcHidden = state.faults.phcHidden.load() != 0;
    card.txStampsOn = state.txType.load() != 0;
    card.rxFilter = state.rxFilter.load();
    return card;
}

}  // namespace

std::atomic<Conductor*> runConductor{nullptr};

void attach(const std::string& configText) {
    const std::lock_guard<std::mutex> guard(attachMutex);
    if (sharedState.load() == nullptr) {
        SharedState& state = mapState(parseConfig(configText));
        runConductor.store(state.conductor.active() ? &state.conductor : nullptr);
        sharedState.store(&state);
    }
}

bool attachFromEnvironment() {
    if (attachedState() != nullptr) {
        return true;
    }
    const char* text = std::getenv(kConfigVariable);
    if (text == nullptr) {
        return false;
    }
    attach(text);
    return true;
}

SharedState* attachedState() {
    return sharedState.load(std::memory_order_acquire);
}

std::vector<Card> cards() {
    std::vector<Card> result;
    const SharedState* state = attachFromEnvironment() ? attachedState() : nullptr;
    for (std::uint32_t i = 0; state != nullptr && i < state->cardCount; ++i) {
        result.push_back(describe(state->cards[i]));
    }
    return result;
}

Counters counters(const std::string& ifName) {
    const CardState& card = cardNamed(ifName);
    Counters result;
    result.ptpFramesSent = card.counted(Counter::kPtpFramesSent);
    result.eventFramesSent = card.counted(Counter::kEventFramesSent);
    result.txTimestamps = card.counted(Counter::kTxTimestamps);
    result.rxTimestamps = card.counted(Counter::kRxTimestamps);
    result.rxFallbacks = card.counted(Counter::kRxFallbacks);
    result.framesSwallowed = card.counted(Counter::kFramesSwallowed);
    result.clockReadings = card.counted(Counter::kClockReadings);
    result.clockAdjustments = card.counted(Counter::kClockAdjustments);
    return result;
}

std::vector<EventFrame> latestEventFrames(std::size_t most) {
    std::vector<EventFrame> frames;
    if (!attachFromEnvironment()) {
        return frames;
    }
    const SharedState& state = *attachedState();
    for (const SentEvent& event : state.events.latest(EventRing::kEntries)) {
        if (event.messageType < kFirstGeneralMessage) {
            frames.push_back({state.cards[event.card % kMaxCards].ifName, event.rawNs,
                              event.messageType, event.sequenceId});
        }
    }
    frames.erase(frames.begin(),
                 frames.end() - static_cast<std::ptrdiff_t>(std::min(most, frames.size())));
    return frames;
}

std::optional<std::uint64_t> truePhcNs(const char* ifName, std::uint64_t rawNs) {
    if (!attachFromEnvironment()) {
        return std::nullopt;
    }
    const CardState* card = attachedState()->findCard(ifName);
    if (card == nullptr) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(card->phcNs(rawNs));
}

void orderFault(const std::string& ifName, const FaultOrder& order) {
    cardNamed(ifName).faults.order(order);
}

std::uint32_t remainingFaults(const std::string& ifName, Fault fault) {
    return cardNamed(ifName).faults.remaining(fault);
}

void setLink(const std::string& ifName, bool up) {
    cardNamed(ifName).faults.linkDown.store(up ? 0 : 1);
}

void hidePhc(const std::string& ifName, bool hidden) {
    cardNamed(ifName).faults.phcHidden.store(hidden ? 1 : 0);
}

void refuseHwtstamp(const std::string& ifName, int errorNumber) {
    cardNamed(ifName).faults.hwtstampErrno.store(static_cast<std::uint32_t>(errorNumber));
}

void refuseEthtool(const std::string& ifName, int errorNumber) {
    cardNamed(ifName).faults.ethtoolErrno.store(static_cast<std::uint32_t>(errorNumber));
}

void clearFaults(const std::string& ifName) {
    cardNamed(ifName).faults.clear();
}

void stepPhc(const std::string& ifName, std::int64_t deltaNs) {
    cardNamed(ifName).stepPhc(deltaNs);
}

void setRatePpb(const std::string& ifName, double ratePpb) {
    if (!(std::fabs(ratePpb) <= 1e8)) {
        throw std::runtime_error("a rate of " + std::to_string(ratePpb) +
                                 " ppb is out of range; give -100000000 to 100000000");
    }
    cardNamed(ifName).setOwnRate(std::llround(ratePpb * 1000.0));
}

}  // namespace virtual_i210
