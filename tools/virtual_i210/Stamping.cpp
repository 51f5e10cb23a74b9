#include "tools/virtual_i210/Stamping.h"

#include <linux/net_tstamp.h>

#include <algorithm>

#include "tools/virtual_i210/Frame.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/Timespec.h"
#include "tools/virtual_i210/simulated/Random.h"

namespace virtual_i210 {

namespace {

constexpr std::uint64_t kSpinNs = 60'000;

/** The instant of a kernel timestamp. Not knowing it is taken as now; an error of the two readings
 *  makes the instant late, never early. */
std::uint64_t instantOf(const std::optional<std::int64_t>& softwareNs) {
    if (!softwareNs || timeIsSimulated()) {
        return rawNowNs();
    }
    const std::int64_t agoNs = realtimeNowNs() - *softwareNs;
    return rawNowNs() - static_cast<std::uint64_t>(agoNs);
}

/** The sending of a frame that this socket receives. Equal frames are given in the order of their
 *  sending; without a kernel timestamp that order alone tells which one this is. */
std::optional<SentEvent> findReceived(Descriptor& socket, const SeenFrame& frame,
                                      const PtpFrame& ptp, std::uint64_t seenRawNs) {
    const std::uint64_t key = eventKey(frame.bytes, ptp);
    LastGiven& last = socket.lastGiven[key % kLastGivenEntries];
    std::uint64_t sinceRawNs = socket.createdRawNs.load();
    if (last.key.load() == key) {
        sinceRawNs = std::max(sinceRawNs, last.rawNs.load() + 1);
    }
    const std::uint64_t arrivalRawNs = frame.softwareNs ? seenRawNs : 0;
    const EventRing& events = attachedState()->events;
    const auto sent = timeIsSimulated() ? events.firstOf(key, sinceRawNs)
                                        : events.find(key, arrivalRawNs, sinceRawNs);
    if (sent && frame.taken) {
        last.key.store(key);
        last.rawNs.store(sent->rawNs);
    }
    return sent;
}

std::uint64_t receiveJitterNs(const CardState& card, const SentEvent& sent) {
    const std::uint64_t width = 2 * std::uint64_t{card.jitterNs} + 1;
    return seededRandom(card.seed, RandomStream::kReceiveJitter, sent.key ^ sent.rawNs) % width;
}

void waitUntil(std::uint64_t rawNs) {
    if (timeIsSimulated()) {
        workUntil(rawNs);
        return;
    }
    std::uint64_t now = rawNowNs();
    if (now + kSpinNs < rawNs) {
        const std::uint64_t sleepNs = rawNs - now - kSpinNs;
        const timespec duration = toTimespec(static_cast<std::int64_t>(sleepNs));
        nanosleep(&duration, nullptr);
    }
    while (now < rawNs) {
        now = rawNowNs();
    }
}

}  // namespace

std::optional<std::int64_t> receiveStamp(CardState& card, Descriptor& socket,
                                         const SeenFrame& frame) {
    const std::uint64_t seenRawNs = instantOf(frame.softwareNs);
    const auto ptp = parsePtpFrame(frame.bytes, frame.length);
    const bool event = ptp && ptp->isEvent();
    // In simulated time the ring holds general messages too, since they also travel.
    const bool noted = event || (ptp && timeIsSimulated());
    const auto sent = noted ? findReceived(socket, frame, *ptp, seenRawNs) : std::nullopt;
    if (sent) {
        waitUntil(sent->rawNs + card.cableNs);
    }
    const std::uint32_t filter = card.rxFilter.load();
    if (filter == HWTSTAMP_FILTER_NONE || (filter != HWTSTAMP_FILTER_ALL && !event)) {
        return std::nullopt;
    }
    if (ptp && frame.taken && card.faults.take(Fault::kRxTimestampLost, ptp->messageType)) {
        return std::nullopt;
    }
    if (!sent) {
        card.count(Counter::kRxFallbacks);
        return card.shownPhcNs(seenRawNs);
    }
    card.count(Counter::kRxTimestamps);
    return card.shownPhcNs(sent->rawNs + card.cableNs + receiveJitterNs(card, *sent) -
                           card.jitterNs);
}

std::optional<std::int64_t> transmitStamp(const Descriptor& socket, const SeenFrame& frame) {
    const auto ptp = parsePtpFrame(frame.bytes, frame.length);
    if (!ptp) {
        return std::nullopt;
    }
    const EventRing& events = attachedState()->events;
    const std::uint64_t key = eventKey(frame.bytes, *ptp);
    const std::uint64_t sinceRawNs = socket.createdRawNs.load();
    const auto sent = timeIsSimulated() ? events.firstOf(key, sinceRawNs)
                                        : events.find(key, instantOf(frame.softwareNs), sinceRawNs);
    if (!sent || !sent->stamped) {
        return std::nullopt;
    }
    CardState& card = attachedState()->cards[sent->card % kMaxCards];
    card.count(Counter::kTxTimestamps);
    return card.shownPhcNs(sent->rawNs);
}

}  // namespace virtual_i210
