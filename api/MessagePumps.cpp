#include "api/MessagePumps.h"

#include <unistd.h>

#include <cstring>
#include <memory>

#include "api/DaemonState.h"
#include "api/StackEnvironment.h"
#include "base/DbgLog.h"
#include "base/Monotonic.h"
#include "base/MutexLock.h"
#include "base/Undestroyed.h"
#include "profile/Profile.h"
#include "ptp/ProtocolSteps.h"
#include "wire/EthernetFrame.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;
constexpr useconds_t kPausedPollMicroseconds = 100;
constexpr useconds_t kIdlePollMicroseconds = 1000;
constexpr int kReceiveCapacity = 2048;
constexpr int kNotHandled = -1;

// mutexInputThreader and mutexOutputThreader: one that is held when its pump is cancelled stays
// locked, so that no second sender meets a half-sent exchange.

void waitWhilePaused() {
    while (!isRunning()) {
        usleep(kPausedPollMicroseconds);
    }
}

/** Holds a pump's mutex for its turn. A pump that is cancelled within leaves it locked, unless
 *  there may be pumps after it. */
class PumpTurn {
public:
    explicit PumpTurn(pthread_mutex_t& mutex) : mutex_(mutex) { lockOrThrow(mutex_); }
    ~PumpTurn() {
        if (over_ || profile::current().startAfterDestroy != 0) {
            pthread_mutex_unlock(&mutex_);
        }
    }
    PumpTurn(const PumpTurn&) = delete;
    PumpTurn& operator=(const PumpTurn&) = delete;

    void end() { over_ = true; }

private:
    pthread_mutex_t& mutex_;
    bool over_ = false;
};

timespec monotonicDeadline(int periodMs) {
    const long long deadline = static_cast<long long>(monotonicNs()) +
                               static_cast<long long>(periodMs) * kNsPerMillisecond;
    timespec result{};
    result.tv_sec = static_cast<time_t>(deadline / kNsPerSecond);
    result.tv_nsec = static_cast<long>(deadline % kNsPerSecond);
    return result;
}

/** Waits for the period or until wakeSenders, whichever is first. Senders that were paused share
 *  one mutex, which a cancelled wait takes again before it unwinds: left locked, it would hold the
 *  other senders for ever, hence the scope. */
void waitForPeriod(int lastType, int periodMs) {
    pthread_mutex_t& mutex = th_mutex[lastType];
    const MutexLock lock(mutex);
    const timespec deadline = monotonicDeadline(periodMs);
    // Several pumps wait on cv with different mutexes, which the C library allows in practice.
    pthread_cond_clockwait(cv.native_handle(), &mutex, CLOCK_MONOTONIC, &deadline);
}

/** Sends the message once and returns its type. */
int sendOnce(PTPMessage& message) {
    PumpTurn turn(mutexOutputThreader);
    int type = message.getMsgNumericType();
    switch (type) {
    case wire::kSync:
        static_cast<PTPMsgSync&>(message).processOutgoing();
        break;
    case wire::kPdelayReq:
        static_cast<PTPMsgPathDelayReq&>(message).processOutgoing();
        break;
    case wire::kAnnounce:
        static_cast<PTPMsgAnnounce&>(message).processOutgoing();
        break;
    default:
        ZEB_LOG_AS("OutputThreader", kError, "Unknown message ...\n");
        type = 0;
    }
    turn.end();
    return type;
}

}  // namespace

void wakeSenders() {
    cv.notify_all();
}

int handleFrame(const InputPumpRecord& pump, unsigned char* frame, unsigned short length,
                const ptp_time_t& rxTime) {
    if (!protocolSteps.admits(frame, length, toNs(rxTime))) {
        return kNotHandled;
    }
    const std::unique_ptr<PTPMessage> message(
        pump.factory->getPTPMessageInstance(reinterpret_cast<ptpv2hdr_t*>(frame)));
    if (message == nullptr) {
        return kNotHandled;
    }
    message->setArrival(pump.service, rxTime, length);
    return message->processIncoming() != 0 ? message->getMsgNumericType() : kNotHandled;
}

void* InputThreader(void* record) {
    const auto& pump = *static_cast<InputPumpRecord*>(record);
    unsigned char buffer[kReceiveCapacity + ethernet::kVlanTagSize];
    ptp_time_t rxTime{};
    noteDaemonThread();
    atomic_add(&threadCount, 1);
    for (;;) {
        waitWhilePaused();
        PumpTurn turn(mutexInputThreader);
        const auto length =
            static_cast<unsigned short>(pump.service->receive(buffer, kReceiveCapacity, &rxTime));
        if (length != 0) {
            try {
                handleFrame(pump, buffer, length, rxTime);
            } catch (const std::exception&) {
                // Such a frame is dropped; the next one deserves its chance. Nothing else may be
                // caught here: cancellation unwinds through this frame too.
            }
        } else {
            usleep(kIdlePollMicroseconds);
        }
        turn.end();
    }
}

void* OutputThreader(void* record) {
    const auto& pump = *static_cast<OutputPumpRecord*>(record);
    noteDaemonThread();
    atomic_add(&threadCount, 1);
    pump.message->service = pump.service;
    stack_environment::restore();
    int lastType = 0;
    bool sendFirst = isRunning();
    for (;;) {
        if (!sendFirst) {
            if (!isRunning()) {
                waitWhilePaused();
                lastType = 0;
                if (profile::current().quickStart != 0) {
                    sendFirst = true;
                    continue;
                }
            }
            waitForPeriod(lastType, pump.periodMs);
            if (!isRunning()) {
                continue;
            }
        }
        sendFirst = false;
        lastType = sendOnce(*pump.message);
    }
}
