#include "api/EventMessages.h"

#include <algorithm>

#include "api/RoleSteps.h"
#include "base/DbgLog.h"
#include "base/Monotonic.h"
#include "profile/LoopSteps.h"
#include "profile/OwnMessages.h"
#include "ptp/LinkDelay.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;
constexpr const char* kFunction = "EventLoop";
// A delay that has been measured so often changes slowly: half the requests will do.
constexpr int kEnoughExchanges = 16;
constexpr unsigned long long kSyncsOfSilence = 3;
constexpr int kAnnouncesToQualify = 3;
constexpr unsigned long long kOtherForgottenNs = 10ULL * kNsPerSecond;

unsigned long long periodNs(double milliseconds) {
    const int whole = std::max(wholeMilliseconds(milliseconds), 1);
    return static_cast<unsigned long long>(whole) * kNsPerMillisecond;
}

/** By how much a message may leave off its moment to leave together with one of the Sync. */
unsigned long long slackNs(const Periodic& syncs, const Periodic& others) {
    return std::min(syncs.periodNs, others.periodNs) / 2;
}

}  // namespace

EventMessages::EventMessages(NetworkService<sock>& service, const TSynInstanceConfig& cfg,
                             unsigned short portNumber)
    : input_{&service, &factory_} {
    syncTimes_.periodNs = periodNs(cfg.syncInterval);
    announceTimes_.periodNs = periodNs(kAnnouncePeriodMs);
    requestTimes_.periodNs = periodNs(cfg.syncInterval * kSyncsPerPdelay);
    if (cfg.role != 0) {
        sync_ = std::make_unique<PTPMsgSync>(cfg.Domain, portNumber);
        sync_->service = &service;
        announce_ = std::make_unique<PTPMsgAnnounce>(cfg.Domain, portNumber);
        announce_->service = &service;
        ZEB_LOG_AS(kFunction, kAlways, "tdata_m -> idelay: %d\n",
                   wholeMilliseconds(cfg.syncInterval));
    } else if (cfg.PropagationDelay == 0) {
        request_ = std::make_unique<PTPMsgPathDelayReq>(cfg.Domain, portNumber);
        request_->service = &service;
    }
}

void EventMessages::restart(unsigned long long nowNs) {
    for (Periodic* const times : {&syncTimes_, &announceTimes_, &requestTimes_}) {
        times->restart(nowNs);
    }
    requestsAtOnce_ = true;
    answered_ = true;
}

void EventMessages::sendSync(unsigned long long nowNs) {
    syncTimes_.advance(nowNs);
    sync_->processOutgoing();
    const bool isDue = announceTimes_.isDue(nowNs + slackNs(syncTimes_, announceTimes_));
    if (isDue) {
        announceTimes_.advance(nowNs);
    }
    if (isDue || announcesWithSyncs_ > 0) {
        announcesWithSyncs_ = std::max(announcesWithSyncs_ - 1, 0);
        announce_->processOutgoing();
    }
}

/** A port that announces itself has not taken us for its master yet, and needs several messages to
 *  do so. It gets them once, not for as long as it goes on. */
void EventMessages::noteOtherAnnounce(unsigned long long nowNs) {
    if (otherAnnounceNs_ == 0 || nowNs - otherAnnounceNs_ > kOtherForgottenNs) {
        announcesWithSyncs_ = kAnnouncesToQualify;
    }
    otherAnnounceNs_ = nowNs;
}

void EventMessages::sendRequest(unsigned long long nowNs) {
    goodExchanges_ = answered_ ? goodExchanges_ : 0;
    answered_ = false;
    requestsAtOnce_ = false;
    const unsigned long long syncs = goodExchanges_ < kEnoughExchanges
                                         ? static_cast<unsigned long long>(kSyncsPerPdelay)
                                         : 2 * static_cast<unsigned long long>(kSyncsPerPdelay);
    requestTimes_.periodNs = syncs * syncTimes_.periodNs;
    requestTimes_.advance(nowNs);
    own_messages::sayRequestPeriod(requestTimes_.periodNs);
    request_->processOutgoing();
}

void EventMessages::sendDue(unsigned long long nowNs) {
    if (sync_ != nullptr && syncTimes_.isDue(nowNs)) {
        sendSync(nowNs);
    }
    if (nextDeadline() > nowNs) {
        return;
    }
    if (announce_ != nullptr && announceTimes_.isDue(nowNs)) {
        announceTimes_.advance(nowNs);
        announce_->processOutgoing();
    }
    if (request_ != nullptr && requestTimes_.isDue(nowNs)) {
        sendRequest(nowNs);
    }
}

unsigned long long EventMessages::nextDeadline() const {
    if (sync_ != nullptr) {
        const unsigned long long slack = slackNs(syncTimes_, announceTimes_);
        return std::min(syncTimes_.dueNs, announceTimes_.dueNs + slack);
    }
    if (request_ == nullptr) {
        return kNoDeadline;
    }
    const bool followsSyncs =
        !requestsAtOnce_ && lastFollowUpNs_ != 0 &&
        requestTimes_.dueNs < lastFollowUpNs_ + kSyncsOfSilence * syncTimes_.periodNs;
    return requestTimes_.dueNs + (followsSyncs ? slackNs(syncTimes_, requestTimes_) : 0);
}

void EventMessages::noteFollowUp(unsigned long long nowNs) {
    lastFollowUpNs_ = nowNs;
    if (request_ != nullptr && requestTimes_.isDue(nowNs + slackNs(syncTimes_, requestTimes_))) {
        sendRequest(nowNs);
    }
}

void EventMessages::handle(unsigned char* frame, unsigned short length, const ptp_time_t& rxTime) {
    if (announce_ != nullptr && length > wire::kTransportAndType &&
        wire::messageType(frame) == wire::kAnnounce) {
        noteOtherAnnounce(monotonicNs());
    }
    switch (handleFrame(input_, frame, length, rxTime)) {
    case wire::kFollowUp:
        noteFollowUp(monotonicNs());
        break;
    case wire::kPdelayRespFollowUp:
        answered_ = true;
        goodExchanges_ = std::min(goodExchanges_ + 1, kEnoughExchanges);
        break;
    default:
        break;
    }
}
