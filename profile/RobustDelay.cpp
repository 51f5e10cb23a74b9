#include "profile/RobustDelay.h"

#include <pthread.h>

#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "base/MutexLock.h"
#include "profile/DelayFilter.h"
#include "profile/Quality.h"
#include "ptp/SyncEstimate.h"
#include "wire/ptpwire.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
/** Answers to one request come within milliseconds of each other. */
constexpr long long kUndisputedAfterNs = 50 * static_cast<long long>(kNsPerMillisecond);

pthread_mutex_t filterMutex = PTHREAD_MUTEX_INITIALIZER;
DelayFilter filter;

struct Pending {
    bool isThere;
    unsigned int sequenceId;
    PdelayTimes times;
};
Pending pending{};
int lastSequenceId = -1;

bool isNeverDisputed(unsigned int /*sequenceId*/) {
    return false;
}

/** The master's rate is the neighbour's, or near it. */
DelayFilter::Rate rateFrom(const TimeRecord& record) {
    constexpr double kBridges = 5e-6;
    constexpr double kAnyClock = 200e-6;
    const long double rate = record.masterRate();
    return isRateInRange(rate) ? DelayFilter::Rate{static_cast<double>(rate - 1), kBridges}
                               : DelayFilter::Rate{0, kAnyClock};
}

enum class Settled { kNothing, kUsed, kRefused };

Settled settleLocked(const DelayFilter::Rate& rate, unsigned long long phcNs) {
    if (filter.reconsider(rate)) {
        return Settled::kUsed;
    }
    if (!pending.isThere ||
        (phcNs != 0 && signedDiff(phcNs, pending.times.t4) < kUndisputedAfterNs)) {
        return Settled::kNothing;
    }
    pending.isThere = false;
    if (robust_delay::exchangeIsDisputed(pending.sequenceId)) {
        return Settled::kNothing;  // counted where the second answer came in
    }
    return filter.take(pending.times, rate) ? Settled::kUsed : Settled::kRefused;
}

}  // namespace

bool (*robust_delay::exchangeIsDisputed)(unsigned int sequenceId) = isNeverDisputed;

void robust_delay::checkNothing(ClockItemMembersType& /*item*/) {}

void robust_delay::leaveResponse(const char* /*interfaceName*/, ClockItemMembersType& /*item*/) {}

void robust_delay::settle(TimeRecord record, unsigned long long phcNs) {
    Settled settled = Settled::kNothing;
    long long delayNs = 0;
    {
        const QuietLock lock(filterMutex);
        settled = settleLocked(rateFrom(record), phcNs);
        delayNs = filter.delayNs();
    }
    if (settled == Settled::kUsed) {
        record.publishLinkDelay(static_cast<int>(delayNs));
        ZEB_LOG_AS("processIncoming", kInfo, "Measured delay: %lld\n", delayNs);
    } else if (settled == Settled::kRefused) {
        quality::countUnusedExchange();
    }
}

void robust_delay::useExchange(Port& port, const unsigned char* respFollowUp,
                               const PdelayTimes& times, ClockItemMembersType& item) {
    settle(port.record, 0);
    const unsigned int sequenceId = wire::sequenceId(respFollowUp);
    const QuietLock lock(filterMutex);
    // A request that the network doubled is answered twice: t1 is that of the first one.
    if (sequenceId != item.pdelaySeqNo || static_cast<int>(sequenceId) == lastSequenceId) {
        return;
    }
    lastSequenceId = static_cast<int>(sequenceId);
    pending = {true, sequenceId, times};
    item.measuredDelay = static_cast<int>(filter.delayNs());
}

bool robust_delay::isKnown() {
    const QuietLock lock(filterMutex);
    return filter.isKnown();
}

double robust_delay::doubt() {
    const QuietLock lock(filterMutex);
    return filter.doubt();
}
