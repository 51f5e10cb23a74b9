#include "api/EventRole.h"

#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "api/DaemonState.h"
#include "api/EventMessages.h"
#include "api/InterfaceDataManager.h"
#include "api/LoopOrders.h"
#include "api/MessagePumps.h"
#include "api/RoleSteps.h"
#include "api/StackEnvironment.h"
#include "base/DbgLog.h"
#include "base/FieldText.h"
#include "base/Monotonic.h"
#include "platform/CardSteps.h"
#include "platform/Descriptors.h"
#include "profile/LinkWatch.h"
#include "profile/LoopSteps.h"
#include "profile/Profile.h"
#include "profile/Quality.h"
#include "ptp/ProtocolSteps.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;
constexpr const char* kFunction = "EventLoop";
constexpr int kReceiveCapacity = 2048;
// Between two turns of the loop, so that a flood delays neither a Sync nor an order for long.
constexpr int kFramesAtOnce = 64;
constexpr int kMostQueued = 8192;
// A socket that goes on failing is left alone for so long; a set-up that failed, for longer.
constexpr int kFailuresBeforeRest = 3;
constexpr unsigned long long kSocketRestNs = 100ULL * kNsPerMillisecond;
// More than two thousand frames a second are a flood: each would wake the loop alone. It lets some
// forty gather instead, which the card's stamps make up for; an answer leaves so much later, and a
// neighbour that is asked answers within 10 ms.
constexpr int kFramesOfCrowd = 32;
constexpr unsigned long long kCrowdNs = 16ULL * kNsPerMillisecond;
constexpr unsigned long long kFramesGathered = 40;
constexpr unsigned long long kLongestGatherNs = 4ULL * kNsPerMillisecond;
constexpr double kSyncsOfSilence = 3;
constexpr unsigned long long kTickPeriodNs = 1000ULL * kNsPerMillisecond;
constexpr unsigned long long kSetUpRestNs = 1000ULL * kNsPerMillisecond;

class EventLoop {
public:
    explicit EventLoop(const char* ifName) : ifName_(ifName) {}

    void run();

private:
    bool begin();
    void setUp(int index, unsigned short portNumber);
    void tearDown();
    void followLink(unsigned long long nowNs);
    bool takeOrders(unsigned long long nowNs);
    void sendDue(unsigned long long nowNs);
    unsigned long long nextTick() const;
    void tickIfDue(unsigned long long nowNs);
    unsigned long long nextTurn(unsigned long long nowNs) const;
    void sleepUntil(unsigned long long wakeNs, unsigned long long nowNs);
    void receiveQueued();
    void noteTaken(int frames);
    void takeErrors();
    void discardQueued();
    bool takeFrame();
    void noteHeard(unsigned long long followUpNs);

    const char* const ifName_;
    std::unique_ptr<LinkWatch> link_;
    std::unique_ptr<NetworkService<sock>> service_;
    std::unique_ptr<EventMessages> messages_;
    int index_ = 0;  // that the link is watched by
    bool linkUp_ = true;
    bool linkChanged_ = false;
    unsigned long long heardNs_ = 0;  // the latest Follow_Up
    unsigned long long fedNs_ = 0;    // the latest one whose pair was used, or the first
    unsigned int usedPairs_ = 0;      // then
    unsigned long long lastTickNs_ = 0;
    bool active_ = false;
    int failures_ = 0;   // of the socket since the last frame
    int uncounted_ = 0;  // frames since crowdSinceNs_
    unsigned long long crowdSinceNs_ = 0;
    unsigned long long gatherNs_ = 0;  // for which frames gather, 0 without a flood
    unsigned long long socketRestsUntilNs_ = 0;
    unsigned long long setUpAgainNs_ = kNoDeadline;
    unsigned char buffer_[kReceiveCapacity + ethernet::kVlanTagSize];
};

/** What the host's other threads still change is looked up at each use; this is fixed by now. */
const TSynInstanceConfig& configuration() {
    return InterfaceDataManager::getInstance()->block.cfg;
}

/** A frame that leaves by another socket would come back to this one and wake the loop for nothing.
 *  A kernel that does not know how to hide it costs just that. */
void hideOwnFrames() {
    const int on = 1;
    if (setsockopt(rawSocket(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0) {
        ZEB_LOG_AS(kFunction, kDebug, "Own frames come back: %s\n", strerror(errno));
    }
}

void EventLoop::setUp(int index, unsigned short portNumber) {
    service_ = std::make_unique<NetworkService<sock>>(ifName_);
    if (configuration().role != 0) {
        setHardwareClockToSystemTime(kFunction, ifName_);
    } else {
        i210helper::e1000_ptp_get_time(ifName_);  // opens the clock here rather than in a handler
    }
    messages_ = std::make_unique<EventMessages>(*service_, configuration(), portNumber);
    index_ = index;
    hideOwnFrames();
    discardQueued();
}

void EventLoop::tearDown() {
    messages_.reset();
    service_.reset();
    closeCard();
    index_ = 0;
    active_ = false;
}

bool EventLoop::begin() {
    // The socket of an earlier run is used again, unless that was on another interface.
    static char earlier[IFNAMSIZ] = "";
    if (std::strncmp(earlier, ifName_, sizeof earlier) != 0) {
        closeCard();
        std::strncpy(earlier, ifName_, sizeof earlier - 1);
    }
    const bool isMaster = configuration().role != 0;
    setRoleMark(isMaster ? '1' : '2');
    ZEB_LOG_AS(kFunction, kAlways, "Starting as %s ... interface=%s\n",
               isMaster ? "Master" : "slave", ifName_);
    if (profile::current().followLink != 0) {
        link_ = std::make_unique<LinkWatch>(ifName_);
        followLink(monotonicNs());
    } else if (const auto port = portNumber(kFunction, ifName_)) {
        setUp(0, *port);
    } else {
        return false;
    }
    stack_environment::restore();
    if (!isMaster) {
        loopSteps.begin(ifName_);
    }
    return true;
}

/** Looks at the interface and makes good what it became. */
void EventLoop::followLink(unsigned long long nowNs) {
    const LinkWatch::State state = link_->look(index_);
    const bool failed = rawSocket() <= 0 && state.isUp;
    if (index_ != 0 && (state.wasDeleted || state.index != index_ || failed)) {
        tearDown();
    }
    if (index_ == 0 && state.index != 0) {
        const StackScope scope(fieldText(configuration().ethStackIdent).c_str());
        setUp(state.index, protocolSteps.portNumber(static_cast<unsigned int>(state.index)));
    }
    setUpAgainNs_ = rawSocket() <= 0 && state.isUp ? nowNs + kSetUpRestNs : kNoDeadline;
    if (state.isUp != linkUp_) {
        ZEB_LOG_AS(kFunction, kAlways, "The link of %s is %s\n", ifName_,
                   state.isUp ? "up" : "down");
        linkUp_ = state.isUp;
        linkChanged_ = true;
    }
    quality::setFlag(TSYN_FLAG_LINK_DOWN, !linkUp_);
}

/** False when the loop is to end. */
bool EventLoop::takeOrders(unsigned long long nowNs) {
    const loop_orders::Orders orders = loop_orders::take();
    const bool mayBeActive = isRunning() && linkUp_ && messages_ != nullptr;
    if (mayBeActive && (orders.sendNow || !active_)) {
        if (!active_) {
            discardQueued();
        }
        messages_->restart(nowNs);
    }
    active_ = mayBeActive;
    return !orders.end;
}

void EventLoop::sendDue(unsigned long long nowNs) {
    try {
        messages_->sendDue(nowNs);
    } catch (const std::exception& problem) {
        // Exhausted memory, for one: the next turn has its chance.
        ZEB_LOG_AS(kFunction, kError, "Nothing sent: %s\n", problem.what());
    }
}

unsigned long long EventLoop::nextTurn(unsigned long long nowNs) const {
    unsigned long long wakeNs = std::min(setUpAgainNs_, nextTick());
    if (active_) {
        wakeNs = std::min(wakeNs, messages_->nextDeadline());
    }
    return socketRestsUntilNs_ > nowNs ? std::min(wakeNs, socketRestsUntilNs_) : wakeNs;
}

/** A master that is there tells by each Sync; silence and pairs without stamps are told in time. */
unsigned long long EventLoop::nextTick() const {
    if (fedNs_ == 0 || !isRunning()) {
        return kNoDeadline;
    }
    const double silenceNs = kSyncsOfSilence * configuration().syncInterval * kNsPerMillisecond;
    return std::max(fedNs_ + static_cast<unsigned long long>(silenceNs),
                    lastTickNs_ + kTickPeriodNs);
}

void EventLoop::tickIfDue(unsigned long long nowNs) {
    if (linkChanged_ || nextTick() <= nowNs) {
        linkChanged_ = false;
        lastTickNs_ = nowNs;
        loopSteps.tick();
    }
}

void EventLoop::run() {
    if (!begin()) {
        return;
    }
    for (;;) {
        unsigned long long nowNs = monotonicNs();
        if (link_ != nullptr && setUpAgainNs_ <= nowNs) {
            followLink(nowNs);
        }
        if (!takeOrders(nowNs)) {
            loopSteps.end();
            return;
        }
        if (active_) {
            sendDue(nowNs);
            nowNs = monotonicNs();
        }
        tickIfDue(nowNs);
        sleepUntil(nextTurn(nowNs), nowNs);
    }
}

void EventLoop::sleepUntil(unsigned long long wakeNs, unsigned long long nowNs) {
    const bool listens = active_ && socketRestsUntilNs_ <= nowNs;
    pollfd descriptors[] = {{loop_orders::descriptor(), POLLIN, 0},
                            {link_ != nullptr ? link_->descriptor() : -1, POLLIN, 0},
                            {listens ? rawSocket() : -1, POLLIN, 0}};
    const unsigned long long waitNs = wakeNs > nowNs ? wakeNs - nowNs : 0;
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(std::min(waitNs / kNsPerSecond, 0x7FFFFFFFULL));
    wait.tv_nsec = static_cast<long>(waitNs % kNsPerSecond);
    if (ppoll(descriptors, 3, wakeNs == kNoDeadline ? nullptr : &wait, nullptr) <= 0) {
        return;
    }
    if (descriptors[0].revents != 0) {
        loop_orders::acknowledge();
    }
    if (descriptors[1].revents != 0) {
        followLink(monotonicNs());
    }
    if ((descriptors[2].revents & POLLIN) != 0 && messages_ != nullptr) {
        receiveQueued();
    }
    if ((descriptors[2].revents & ~POLLIN) != 0) {
        takeErrors();
    }
}

void EventLoop::noteHeard(unsigned long long followUpNs) {
    heardNs_ = std::max(heardNs_, followUpNs);
    const unsigned int usedPairs = loopSteps.usedPairs();
    if (fedNs_ == 0 || usedPairs != usedPairs_) {
        fedNs_ = heardNs_;
        usedPairs_ = usedPairs;
    }
}

/** Lets the next queued frame handle itself. False when there is none, or hardly: a Follow_Up is
 *  mostly the last one, and when it is not, the next turn finds out for nothing. */
bool EventLoop::takeFrame() {
    const unsigned long long heardBeforeNs = heardNs_;
    ptp_time_t rxTime{};
    const auto length =
        static_cast<unsigned short>(service_->receive(buffer_, kReceiveCapacity, &rxTime));
    if (length != 0) {
        failures_ = 0;
        try {
            messages_->handle(buffer_, length, rxTime);
            noteHeard(messages_->lastFollowUpNs());
        } catch (const std::exception&) {
            // Such a frame is dropped; the next one deserves its chance.
            return true;
        }
    }
    return queueState() == QueueState::kFrame && heardNs_ == heardBeforeNs;
}

/** Judges by how long the last few frames took to come. */
void EventLoop::noteTaken(int frames) {
    uncounted_ += frames;
    if (uncounted_ < kFramesOfCrowd) {
        return;
    }
    const unsigned long long nowNs = monotonicNs();
    const unsigned long long tookNs = nowNs - crowdSinceNs_;
    const auto counted = static_cast<unsigned long long>(uncounted_);
    gatherNs_ =
        tookNs < kCrowdNs ? std::min(tookNs * kFramesGathered / counted, kLongestGatherNs) : 0;
    crowdSinceNs_ = nowNs;
    uncounted_ = 0;
}

void EventLoop::receiveQueued() {
    int taken = 0;
    while (taken < kFramesAtOnce && takeFrame()) {
        ++taken;
    }
    noteTaken(taken);
    // A queue that was not emptied has more to give: it would run over.
    if (gatherNs_ != 0 && taken < kFramesAtOnce) {
        socketRestsUntilNs_ = monotonicNs() + gatherNs_;
    }
    if (queueState() == QueueState::kFailed) {
        takeErrors();
    }
}

/** What raised the error condition is taken off the socket. One that comes again and again would
 *  keep the loop awake, hence the rest. */
void EventLoop::takeErrors() {
    if (rawSocket() <= 0) {
        return;
    }
    int error = 0;
    socklen_t size = sizeof error;
    const bool hadStamps = loopSteps.takeStrayStamps(rawSocket());
    static_cast<void>(getsockopt(rawSocket(), SOL_SOCKET, SO_ERROR, &error, &size));
    failures_ += hadStamps ? 0 : 1;
    if (failures_ >= kFailuresBeforeRest) {
        socketRestsUntilNs_ = monotonicNs() + kSocketRestNs;
    }
}

/** What came while nobody listened tells of a time that has passed. */
void EventLoop::discardQueued() {
    unsigned long long rxNs = 0;
    for (int i = 0; i < kMostQueued && rawSocket() > 0; ++i) {
        receiveQueuedFrame(rawSocket(), buffer_, kReceiveCapacity, &rxNs);
        if (queueState() != QueueState::kFrame) {
            return;
        }
    }
}

}  // namespace

void runEventRole(const char* ifName) {
    const auto loop = std::make_unique<EventLoop>(ifName);
    loop->run();
}
