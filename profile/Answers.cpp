#include "profile/Answers.h"

#include <pthread.h>

#include "base/DbgLog.h"
#include "base/Monotonic.h"
#include "base/MutexLock.h"
#include "profile/Masters.h"
#include "profile/Profile.h"
#include "profile/Quality.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
constexpr std::size_t kExchangesKept = 4;
constexpr int kCleanExchanges = 3;
// A link has one peer and a segment behind a plain bridge a few. Who comes later shares a budget.
constexpr std::size_t kPeersKept = 8;
constexpr unsigned int kStrangersPerSecond = 64;
constexpr unsigned long long kPeerForgottenNs = 20ULL * kNsPerSecond;

struct Exchange {
    bool sent = false;
    unsigned int sequenceId = 0;
    bool answered = false;
    bool followed = false;
    bool disputed = false;
    PortIdentity responder{};
};

struct Requests {
    bool any = false;
    PortIdentity own{};
    unsigned int latest = 0;
    Exchange exchanges[kExchangesKept];
    bool severalAnswer = false;
    int cleanInARow = 0;
};

/** Requests within one second. */
struct Rate {
    unsigned long long sinceNs = 0;
    unsigned int requests = 0;

    bool admits(unsigned long long nowNs, unsigned int perSecond) {
        if (requests == 0 || nowNs - sinceNs >= kNsPerSecond) {
            sinceNs = nowNs;
            requests = 0;
        }
        return requests < perSecond && ++requests != 0;
    }
};

struct Peer {
    unsigned long long identity = 0;
    unsigned long long lastNs = 0;  ///< 0: nobody is here
    Rate rate;
};

pthread_mutex_t requestsMutex = PTHREAD_MUTEX_INITIALIZER;
Requests requests;
Peer peers[kPeersKept];
Rate ofMaster;
Rate ofResponder;
Rate ofStrangers;

Exchange& slotOf(unsigned int sequenceId) {
    return requests.exchanges[sequenceId % kExchangesKept];
}

/** The exchange of a request that was sent lately, or null. */
Exchange* findExchange(unsigned int sequenceId) {
    Exchange& found = slotOf(sequenceId);
    return found.sent && found.sequenceId == sequenceId ? &found : nullptr;
}

/** One exchange with a single answer may only mean that the second answer was lost. */
void judgeLatestExchange() {
    const Exchange* const last = findExchange(requests.latest);
    if (last == nullptr || !last->answered || last->disputed) {
        return;
    }
    ++requests.cleanInARow;
    if (requests.severalAnswer && requests.cleanInARow >= kCleanExchanges) {
        requests.severalAnswer = false;
        quality::setFlag(TSYN_FLAG_SEVERAL_ANSWERS, false);
    }
}

void dispute(Exchange& exchange) {
    requests.cleanInARow = 0;
    if (exchange.disputed) {
        return;
    }
    exchange.disputed = true;
    requests.severalAnswer = true;
    quality::countUnusedExchange();
    quality::setFlag(TSYN_FLAG_SEVERAL_ANSWERS, true);
}

bool admitsResponse(Exchange& exchange, const PortIdentity& responder) {
    if (!exchange.answered) {
        exchange.answered = true;
        exchange.responder = responder;
        return exchange.sequenceId == requests.latest;
    }
    if (responder != exchange.responder) {
        dispute(exchange);
    }
    return false;
}

/** A second answer may come when the exchange is complete. The robust delay waits for it; without
 *  it, only the exchange before tells whether there is one. */
bool mayUseExchanges() {
    return !requests.severalAnswer &&
           (profile::current().robustDelay != 0 || requests.cleanInARow > 0);
}

bool admitsFollowUp(Exchange& exchange, const PortIdentity& responder) {
    if (!exchange.answered) {
        return false;
    }
    if (responder != exchange.responder) {
        dispute(exchange);
        return false;
    }
    const bool isFirst = !exchange.followed;
    exchange.followed = true;
    return isFirst && exchange.sequenceId == requests.latest && mayUseExchanges();
}

struct Verdict {
    bool isAdmitted;
    bool isFirstDispute;  ///< since a single port answered
};

Verdict judge(const unsigned char* message) {
    const MutexLock lock(requestsMutex);
    const bool wereSeveral = requests.severalAnswer;
    if (!requests.any || portIdentityAt(message + wire::kRequestingClockIdentity) != requests.own) {
        return {false, false};
    }
    Exchange* const exchange = findExchange(wire::sequenceId(message));
    if (exchange == nullptr) {
        return {false, false};
    }
    const bool isAdmitted = wire::messageType(message) == wire::kPdelayResp
                                ? admitsResponse(*exchange, sourceOf(message))
                                : admitsFollowUp(*exchange, sourceOf(message));
    return {isAdmitted, requests.severalAnswer && !wereSeveral};
}

/** The peer's place, or one that nobody has or whose peer left long ago; null when there is none: a
 *  flood of identities drives nobody out who was here before it. */
Peer* peerOf(unsigned long long identity, unsigned long long nowNs) {
    Peer* room = nullptr;
    for (Peer& each : peers) {
        const bool isFree = each.lastNs == 0 || nowNs - each.lastNs > kPeerForgottenNs;
        if (!isFree && each.identity == identity) {
            each.lastNs = nowNs;
            return &each;
        }
        room = isFree && room == nullptr ? &each : room;
    }
    if (room != nullptr) {
        *room = Peer{identity, nowNs, {}};
    }
    return room;
}

/** Of the master believed or a port that answered us first lately: both need no place, and are told
 *  apart so that a flood in the name of one does not silence the other. Null for others. */
Rate* trustedRate(const PortIdentity& asking) {
    if (masters::isBelieved(keyOf(asking))) {
        return &ofMaster;
    }
    const MutexLock lock(requestsMutex);
    for (const Exchange& each : requests.exchanges) {
        if (each.answered && each.responder == asking) {
            return &ofResponder;
        }
    }
    return nullptr;
}

}  // namespace

void answers::noteRequest(const unsigned char* request) {
    const MutexLock lock(requestsMutex);
    judgeLatestExchange();
    requests.any = true;
    requests.own = sourceOf(request);
    requests.latest = wire::sequenceId(request);
    Exchange& exchange = slotOf(requests.latest);
    exchange = Exchange{};
    exchange.sent = true;
    exchange.sequenceId = requests.latest;
}

bool answers::admits(const unsigned char* message) {
    const unsigned int type = wire::messageType(message);
    if (type != wire::kPdelayResp && type != wire::kPdelayRespFollowUp) {
        return true;
    }
    const Verdict verdict = judge(message);
    if (verdict.isFirstDispute) {
        ZEB_LOG(kError, "Several ports answer a Pdelay_Req, such as %016llx: no delay is used\n",
                wire::load64(message + wire::kSourceClockIdentity));
    }
    return verdict.isAdmitted;
}

bool answers::exchangeIsDisputed(unsigned int sequenceId) {
    const MutexLock lock(requestsMutex);
    const Exchange* const exchange = findExchange(sequenceId);
    return requests.severalAnswer || (exchange != nullptr && exchange->disputed);
}

bool answers::isWithinRate(const unsigned char* message, unsigned int answersPerSecond) {
    if (wire::messageType(message) != wire::kPdelayReq) {
        return true;
    }
    const unsigned long long now = monotonicNs();
    if (Rate* const trusted = trustedRate(sourceOf(message))) {
        return trusted->admits(now, answersPerSecond);
    }
    Peer* const peer = peerOf(wire::load64(message + wire::kSourceClockIdentity), now);
    return peer != nullptr ? peer->rate.admits(now, answersPerSecond)
                           : ofStrangers.admits(now, kStrangersPerSecond);
}

bool answers::isOwn(const PortKey& key) {
    const MutexLock lock(requestsMutex);
    return requests.any && keyOf(requests.own) == key;
}
