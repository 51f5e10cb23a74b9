#include "timebase/TimeRecord.h"

#include <pthread.h>

#include <cstddef>
#include <cstring>

#include "base/Extended80.h"

namespace {

pthread_mutex_t writerMutex = PTHREAD_MUTEX_INITIALIZER;

/** The one writer of a record as long as it exists; the sequence is odd then. Holds no cancellation
 *  point, and does not throw. */
class Writing {
public:
    explicit Writing(gPtpTimeDataStruct& record) : quality_(record.unused172) {
        pthread_mutex_lock(&writerMutex);
        std::memcpy(&before_, sequence(), sizeof before_);
        store(before_ + 1);
        __atomic_thread_fence(__ATOMIC_SEQ_CST);
    }
    ~Writing() {
        __atomic_thread_fence(__ATOMIC_SEQ_CST);
        store(before_ + 2);
        pthread_mutex_unlock(&writerMutex);
    }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

    void put(gPtpTimeQuality quality) {
        quality.sequence = before_ + 1;
        std::memcpy(quality_, &quality, sizeof quality);
    }

private:
    unsigned int* sequence() {
        return reinterpret_cast<unsigned int*>(quality_ + offsetof(gPtpTimeQuality, sequence));
    }
    void store(unsigned int value) { __atomic_store_n(sequence(), value, __ATOMIC_RELEASE); }

    unsigned char* quality_;
    unsigned int before_ = 0;
};

}  // namespace

void storeLine(gPtpTimeDataStruct& record, const TimeLine& line) {
    record.masterOffset = line.masterOffset;
    record.systemOffset = line.systemOffset;
    storeExtended(record.rateRatio1, line.masterRate);
    storeExtended(record.rateRatio2, line.phcRate);
    record.localTime = line.localTime;
}

long long TimeRecord::linkDelay() const {
    return published_ != nullptr ? published_->linkDelay : 0;
}

long long TimeRecord::softOffset() const {
    return published_ != nullptr ? published_->softOffset : 0;
}

long double TimeRecord::masterRate() const {
    return published_ != nullptr ? loadExtended(published_->rateRatio1) : 0;
}

void TimeRecord::countAcceptedSync(unsigned int sequenceId) {
    if (published_ != nullptr) {
        published_->acceptedSync = published_->acceptedSync + 1;
        published_->sequenceId = sequenceId;
    }
}

void TimeRecord::countRejectedSync() {
    if (published_ != nullptr) {
        published_->rejectedSync = published_->rejectedSync + 1;
    }
}

void TimeRecord::publishSlaveSample(const SyncSample& sample, bool rateInRange,
                                    const LocalClock& local) {
    if (published_ == nullptr) {
        return;
    }
    if (rateInRange) {
        storeExtended(published_->rateRatio1, sample.rate);
        published_->masterOffset = sample.offset;
    }
    published_->localTime = sample.localNs;
    published_->systemOffset = local.systemOffset;
    storeExtended(published_->rateRatio2, local.rate);
    published_->originTime = sample.originNs;
    published_->sequenceId = sample.sequenceId;
}

void TimeRecord::noteSentSync(unsigned int sequenceId) {
    if (published_ != nullptr) {
        published_->sequenceId = sequenceId;
    }
}

void TimeRecord::publishMasterTime(long double rate, long long phcNs, const LocalClock& local) {
    if (published_ == nullptr) {
        return;
    }
    published_->masterOffset = 0;
    storeExtended(published_->rateRatio1, rate);
    published_->originTime = static_cast<unsigned long long>(phcNs);
    published_->systemTime = static_cast<unsigned long long>(local.systemNs);
    published_->localTime = static_cast<unsigned long long>(local.phcNs);
    published_->systemOffset = local.systemOffset;
    storeExtended(published_->rateRatio2, local.rate);
}

void TimeRecord::publishLine(const TimeLine& line, const LineSource& source,
                             gPtpTimeQuality quality) {
    if (published_ == nullptr) {
        return;
    }
    Writing writing(*published_);
    storeLine(*published_, line);
    published_->originTime = source.originTime;
    if (source.systemTime != 0) {
        published_->systemTime = source.systemTime;
    }
    writing.put(quality);
}

void TimeRecord::publishQuality(gPtpTimeQuality quality) {
    if (published_ != nullptr) {
        Writing(*published_).put(quality);
    }
}

void TimeRecord::publishLinkDelay(int delayNs) {
    if (published_ != nullptr) {
        published_->linkDelay = delayNs;
    }
}

void TimeRecord::publishTimeBase(const PdelaySample& sample, const LocalClock& local) {
    if (published_ == nullptr) {
        return;
    }
    published_->pdelayPhcTime = static_cast<unsigned long long>(local.phcNs);
    published_->pdelaySystemTime = static_cast<unsigned long long>(local.systemNs);
    published_->pdelayOffset = local.systemOffset;
    storeExtended(published_->pdelayRatio, local.rate);
    storeExtended(published_->fitSlope, static_cast<long double>(sample.fitSlope));
    published_->fitEstimate = sample.fitEstimate;
    published_->pdelayT3 = sample.phcT3Ns;
}

void TimeRecord::countIncompletePdelay() {
    if (published_ != nullptr) {
        published_->incompletePdelay = published_->incompletePdelay + 1;
    }
}

void TimeRecord::useFixedDelay(int delayNs) {
    if (published_ != nullptr && delayNs != 0) {
        published_->linkDelay = delayNs;
    }
}

void TimeRecord::setSoftOffset(long long offsetNs) {
    if (published_ != nullptr) {
        published_->softOffset = offsetNs;
    }
}
