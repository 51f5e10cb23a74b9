#include "timebase/TimeRecord.h"

#include "base/Extended80.h"

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
