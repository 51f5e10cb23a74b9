#include "profile/Masters.h"

#include <cmath>

#include "api/InterfaceDataManager.h"
#include "base/DbgLog.h"
#include "base/Monotonic.h"
#include "profile/Profile.h"
#include "profile/Quality.h"

namespace {

constexpr const char* kLogSource = log_source::kMessages;
constexpr double kSilentIntervals = 3;
constexpr double kNsOfMillisecond = kNsPerMillisecond;
constexpr int kFastestLogInterval = -7;
constexpr int kSlowestLogInterval = 4;
constexpr unsigned long long kMemoryOfOthersNs = 3ULL * kNsPerSecond;

/** priority1 to grandmasterIdentity: these bytes lie in the order of their weight, and the smaller
 *  one is the better in each. */
constexpr int kRankSize = wire::kGrandmasterIdentity + wire::kClockIdentitySize -
                          static_cast<int>(wire::kGrandmasterPriority1);
using Rank = std::array<unsigned char, kRankSize>;

struct Belief {
    bool any = false;
    PortIdentity master{};
    unsigned long long lastSyncNs = 0;
    unsigned long long silenceNs = 0;  ///< after which the master has left
    bool hasRank = false;
    Rank rank{};
};

/** What the others were heard of last; 0: nothing. */
struct Others {
    unsigned long long lastFrameNs = 0;
    unsigned long long lastBetterNs = 0;
};

Belief belief;
Others others;

bool isOfMaster(unsigned int type) {
    return type == wire::kSync || type == wire::kFollowUp || type == wire::kAnnounce;
}

/** A Sync that the handler refuses must not keep a good one out. */
bool isUsableSync(const unsigned char* message, const TSynInstanceConfig& cfg) {
    return wire::messageType(message) == wire::kSync &&
           (message[wire::kTransportAndType] & wire::kTransportSpecific) != 0 &&
           message[wire::kVersion] == wire::kVersionPtp && message[wire::kControl] == 0 &&
           message[wire::kDomainNumber] == cfg.Domain;
}

bool mayBelieve(const PortIdentity& candidate) {
    const unsigned char* const wanted = profile::current().masterIdentity;
    const unsigned char* const end = wanted + wire::kClockIdentitySize;
    return std::all_of(wanted, end, [](unsigned char byte) { return byte == 0; }) ||
           std::equal(wanted, end, candidate.begin());
}

/** The longer of what is configured and what the Sync tells: deployed masters tell 125 ms whatever
 *  they do, and deployed slaves may be configured for another master. */
unsigned long long silenceAfter(const unsigned char* sync, const TSynInstanceConfig& cfg) {
    const auto told = static_cast<signed char>(sync[wire::kLogMessageInterval]);
    double intervalMs = cfg.syncInterval > 0 ? cfg.syncInterval : 0;
    if (told >= kFastestLogInterval && told <= kSlowestLogInterval) {
        intervalMs = std::max(intervalMs, std::ldexp(1000.0, told));
    }
    return static_cast<unsigned long long>(kSilentIntervals * intervalMs * kNsOfMillisecond);
}

void forgetOthers() {
    others = Others{};
    quality::setFlag(TSYN_FLAG_OTHER_MASTERS, false);
    quality::setFlag(TSYN_FLAG_BETTER_MASTER, false);
}

void believe(const PortIdentity& master) {
    belief = Belief{};
    belief.any = true;
    belief.master = master;
    quality::noteMaster(master.data(), portNumberOf(master));
    forgetOthers();
}

void releaseSilentMaster(unsigned long long now) {
    if (belief.any && now - belief.lastSyncNs > belief.silenceNs) {
        belief = Belief{};
        quality::noteNoMaster();
    }
}

void noteOwnMaster(const unsigned char* message, unsigned long long now,
                   const TSynInstanceConfig& cfg) {
    if (isUsableSync(message, cfg)) {
        belief.lastSyncNs = now;
        belief.silenceNs = silenceAfter(message, cfg);
    } else if (wire::messageType(message) == wire::kAnnounce) {
        std::copy_n(message + wire::kGrandmasterPriority1, kRankSize, belief.rank.begin());
        belief.hasRank = true;
    }
}

void noteBetterMaster(const PortIdentity& better, unsigned long long now) {
    if (others.lastBetterNs == 0) {
        ZEB_LOG(kError, "Master %016llx announces itself better than %016llx, which is believed\n",
                wire::load64(better.data()), wire::load64(belief.master.data()));
        quality::setFlag(TSYN_FLAG_BETTER_MASTER, true);
    }
    others.lastBetterNs = now;
}

void noteOther(const unsigned char* message, unsigned long long now) {
    quality::countIgnoredFrame();
    quality::setFlag(TSYN_FLAG_OTHER_MASTERS, true);
    others.lastFrameNs = now;
    if (wire::messageType(message) == wire::kAnnounce && belief.hasRank &&
        std::lexicographical_compare(message + wire::kGrandmasterPriority1,
                                     message + wire::kGrandmasterPriority1 + kRankSize,
                                     belief.rank.begin(), belief.rank.end())) {
        noteBetterMaster(sourceOf(message), now);
    }
}

void forgetSilentOthers(unsigned long long now) {
    if (others.lastFrameNs != 0 && now - others.lastFrameNs > kMemoryOfOthersNs) {
        forgetOthers();
    } else if (others.lastBetterNs != 0 && now - others.lastBetterNs > kMemoryOfOthersNs) {
        others.lastBetterNs = 0;
        quality::setFlag(TSYN_FLAG_BETTER_MASTER, false);
    }
}

}  // namespace

bool masters::admits(const unsigned char* message) {
    const InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (!isOfMaster(wire::messageType(message)) || instance == nullptr ||
        instance->block.cfg.role != 0) {
        return true;
    }
    const TSynInstanceConfig& cfg = instance->block.cfg;
    const unsigned long long now = monotonicNs();
    const PortIdentity source = sourceOf(message);
    releaseSilentMaster(now);
    forgetSilentOthers(now);
    if (!belief.any && mayBelieve(source) && isUsableSync(message, cfg)) {
        believe(source);
    }
    if (belief.any && source == belief.master) {
        noteOwnMaster(message, now, cfg);
        return true;
    }
    if (belief.any || !mayBelieve(source)) {
        noteOther(message, now);
        return false;
    }
    // Of one that has not sent a Sync yet: the handler refuses a Sync and says why; a Follow_Up
    // without its Sync must not leave its status and user data behind.
    return wire::messageType(message) != wire::kFollowUp;
}

bool masters::isBelieved(const PortKey& key) {
    return belief.any && keyOf(belief.master) == key;
}
