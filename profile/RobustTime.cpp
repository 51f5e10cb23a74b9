#include "profile/RobustTime.h"

#include <pthread.h>

#include <algorithm>
#include <ctime>

#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "base/MutexLock.h"
#include "platform/i210helper.h"
#include "profile/CrossTimestamps.h"
#include "profile/Profile.h"
#include "profile/Quality.h"
#include "profile/RobustDelay.h"
#include "profile/TimeKeeper.h"
#include "ptp/ProtocolSteps.h"
#include "ptp/SyncEstimate.h"
#include "timebase/SystemClock.h"
#include "timebase/TimeConversion.h"
#include "timebase/osipc.h"
#include "wire/ptpwire.h"

namespace {

using estimator::Reading;
using estimator::Verdict;

constexpr const char* kLogSource = log_source::kMessages;
constexpr unsigned int kTxModeSend = 1;
constexpr int kConfirmations = 2;
/** A second copy comes much sooner than the next Sync. */
constexpr long long kCopyWithinNs = 4 * static_cast<long long>(kNsPerMillisecond);
/** Less is not told from the time that two readings take. */
constexpr long long kLeastSystemStepNs = 20000;
constexpr double kDeployedDelayDoubt = 50;
constexpr double kUnknownDelayDoubt = 50000;

pthread_mutex_t keeperMutex = PTHREAD_MUTEX_INITIALIZER;
TimeKeeper keeper;
TimeRecord keptRecord(nullptr);  ///< of the last Sync, for tick
LineSource lastSource{};
SystemSteps systemSteps;
unsigned int pairsUsed = 0;

/** A cross-timestamp; x 0 when there is none. */
Reading readClocks() {
    unsigned long long systemNs = 0;
    unsigned long long phcNs = 0;
    i210helper::e1000_ptp_get_ext_time("", &systemNs, &phcNs);
    const unsigned int halfWidth = profile::current().preciseCrossTimestamps != 0
                                       ? cross_timestamps::lastHalfWidthNs()
                                       : cross_timestamps::kUnknownHalfWidth;
    return {systemNs, phcNs, static_cast<double>(halfWidth)};
}

bool takeClocks(const Reading& reading) {
    const QuietLock lock(keeperMutex);
    const long long stepNs = systemSteps.since(kLeastSystemStepNs);
    if (stepNs != 0) {
        keeper.shiftSystem(stepNs);
    }
    return keeper.takeClocks(reading);
}

/** Reads both clocks once. Only when they seem to have been set does it look again, since a reading
 *  across such a moment tells nothing. */
Reading followClocks() {
    Reading reading = readClocks();
    if (reading.x == 0 || takeClocks(reading)) {
        return reading;
    }
    for (int i = 0; i < kConfirmations; ++i) {
        const Reading again = readClocks();
        if (again.x == 0 || takeClocks(again)) {
            return again;
        }
        const QuietLock lock(keeperMutex);
        if (!keeper.agree(reading, again)) {
            return again;
        }
        reading = again;
    }
    const QuietLock lock(keeperMutex);
    keeper.followClocks(reading);
    return reading;
}

/** As the host configured it; 0: measured. */
int fixedDelayNs() {
    const InstanceBlock* const block = instanceBlock();
    return block != nullptr ? block->cfg.PropagationDelay : 0;
}

TimeKeeper::Delay delayTo(const TimeRecord& record) {
    if (const int fixedNs = fixedDelayNs()) {
        return {fixedNs, 0, true};
    }
    const long long ns = record.linkDelay();
    if (profile::current().robustDelay == 0) {
        return {ns, ns != 0 ? kDeployedDelayDoubt : kUnknownDelayDoubt, ns != 0};
    }
    const bool isKnown = robust_delay::isKnown();
    return {ns, isKnown ? robust_delay::doubt() : kUnknownDelayDoubt, isKnown};
}

/** Publishes the time as it is known now. The caller holds the keeper. */
void publishLocked(TimeRecord record, const LineSource& source, const TimeKeeper::Delay& delay) {
    const unsigned long long nowNs = systemClockNs();
    gPtpTimeQuality told{};
    if (!keeper.hasTime()) {
        quality::fill(told);
        told.state = keeper.state(nowNs, delay);
        told.boundNs = ~0U;
        record.publishQuality(told);
        return;
    }
    const TimeKeeper::Publication publication = keeper.publish(nowNs, delay);
    if (publication.isStep) {
        quality::countStep();
    }
    quality::fill(told);
    told.state = publication.state;
    told.boundNs = publication.boundNs;
    told.boundGrowthPpb = publication.boundGrowthPpb;
    told.voidAfterNs = publication.voidAfterNs;
    record.publishLine(publication.line, source, told);
    keptRecord = record;
    lastSource = source;
}

}  // namespace

void robust_time::noteNothing(const char* /*interfaceName*/) {}

bool robust_time::isFirstOfItsKind(const ClockItemMembersType& item, unsigned int sequenceId,
                                   unsigned long long rxNs) {
    const long long since = signedDiff(rxNs, item.syncReceiveTime.ns);
    return item.syncSequenceId != static_cast<int>(sequenceId) || since < 0 ||
           since > kCopyWithinNs;
}

void robust_time::useSyncPair(Port& port, const unsigned char* followUp,
                              unsigned long long originNs, ClockItemMembersType& item) {
    const unsigned long long rxNs = item.localTimes.entries[0].ns;
    item.originTime.ns = originNs;
    item.initialised = 1;
    if (rxNs == 0 || originNs == 0) {
        quality::countRefusedSample();
        return;
    }
    robust_delay::settle(port.record, rxNs);
    port.record.useFixedDelay(fixedDelayNs());
    const long long correction =
        correctionNs(static_cast<long long>(wire::load64(followUp + wire::kCorrectionField)));
    const unsigned long long masterNs = originNs + static_cast<unsigned long long>(correction);
    item.masterTimes.entries[0].ns = masterNs;
    TimeKeeper::Delay delay = delayTo(port.record);
    delay.ns = toS64(static_cast<long double>(delay.ns) *
                         protocolSteps.masterRateRatio(
                             wire::load32(followUp + wire::kCumulativeScaledRateOffset)) +
                     0.5L);
    followClocks();
    const QuietLock lock(keeperMutex);
    const Verdict verdict = keeper.takePair({rxNs, masterNs, 0});
    if (verdict == Verdict::kRepeated) {
        return;
    }
    if (verdict == Verdict::kRefused) {
        quality::countRefusedSample();
    } else {
        ++pairsUsed;
    }
    const LineSource source{verdict == Verdict::kRefused ? lastSource.originTime : originNs, 0};
    publishLocked(port.record, source, delay);
}

void robust_time::publishMasterTime(Port& port) {
    const Reading clocks = followClocks();
    const QuietLock lock(keeperMutex);
    keeper.beMaster(port.record.softOffset());
    if (clocks.x != 0) {
        publishLocked(port.record, {clocks.y, clocks.x}, {0, 0, true});
    }
}

long long robust_time::hostTimeNs(const gPtpTimeDataStruct& record, unsigned long long systemNs) {
    if (record.systemTime == 0) {
        return currentTimeNs(record, systemNs);
    }
    // A master's line holds the soft offset that was distributed last, to which the present one
    // must not be added.
    gPtpTimeDataStruct card = record;
    card.masterOffset = 0;
    return currentTimeNs(card, systemNs);
}

void robust_time::logUnknownTxMode(unsigned int txMode) {
    if (txMode > kTxModeSend) {
        ZEB_LOG_AS("processOutgoing", kError, "Wrong configuration TxMode 0x%x ...\n", txMode);
    }
}

/** After a time of its own, what end told stands until the next Sync. */
void robust_time::begin(const char* interfaceName) {
    const TimeRecord record(OSipc::instance(interfaceName));
    const QuietLock lock(keeperMutex);
    if (!keeper.hasTime()) {
        publishLocked(record, lastSource, {0, kUnknownDelayDoubt, false});
        keptRecord = record;
    }
}

void robust_time::tick() {
    TimeRecord record(nullptr);
    {
        const QuietLock lock(keeperMutex);
        record = keptRecord;
    }
    if (record.published() == nullptr) {
        return;
    }
    followClocks();
    const TimeKeeper::Delay delay = delayTo(record);
    const QuietLock lock(keeperMutex);
    publishLocked(record, lastSource, delay);
}

unsigned int robust_time::usedPairs() {
    return pairsUsed;
}

void robust_time::end() {
    const QuietLock lock(keeperMutex);
    if (keptRecord.published() == nullptr) {
        return;
    }
    gPtpTimeQuality told{};
    quality::fill(told);
    told.state = TSYN_STATE_LOST;
    told.boundNs = ~0U;
    keptRecord.publishQuality(told);
}
