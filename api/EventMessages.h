#pragma once

#include <memory>

#include "api/MessagePumps.h"
#include "api/Periodic.h"
#include "include/ZebEthTimeSynSupportInterface.h"

/** The messages of one role on one port: when each is due, and what received ones change in that.
 *  What need not leave at its own moment leaves together with a message of the Sync, so that a
 *  sleeping processor is not woken for it. */
class EventMessages {
public:
    EventMessages(NetworkService<sock>& service, const TSynInstanceConfig& cfg,
                  unsigned short portNumber);

    /** Everything is due now. */
    void restart(unsigned long long nowNs);

    void sendDue(unsigned long long nowNs);

    /** CLOCK_MONOTONIC, ns; kNoDeadline without any. */
    unsigned long long nextDeadline() const;

    /** When the latest Follow_Up came, CLOCK_MONOTONIC, ns; 0 before. */
    unsigned long long lastFollowUpNs() const { return lastFollowUpNs_; }

    /** Lets a received frame handle itself. May throw what its handler throws. */
    void handle(unsigned char* frame, unsigned short length, const ptp_time_t& rxTime);

private:
    void sendSync(unsigned long long nowNs);
    void sendRequest(unsigned long long nowNs);
    void noteFollowUp(unsigned long long nowNs);
    void noteOtherAnnounce(unsigned long long nowNs);

    PTPMessageFactory factory_;
    InputPumpRecord input_;
    std::unique_ptr<PTPMsgSync> sync_;          // of a master
    std::unique_ptr<PTPMsgAnnounce> announce_;  // of a master
    std::unique_ptr<PTPMsgPathDelayReq> request_;
    Periodic syncTimes_, announceTimes_, requestTimes_;
    unsigned long long lastFollowUpNs_ = 0;
    unsigned long long otherAnnounceNs_ = 0;  // when one came last
    int announcesWithSyncs_ = 0;              // that are still to leave with the next Syncs
    int goodExchanges_ = 0;
    bool answered_ = true;
    bool requestsAtOnce_ = true;
};
