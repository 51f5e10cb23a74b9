#include "api/DaemonThreads.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "api/BuildStamp.h"
#include "api/DaemonState.h"
#include "api/EventRole.h"
#include "api/InterfaceDataManager.h"
#include "api/LoopOrders.h"
#include "api/Pauses.h"
#include "api/Roles.h"
#include "api/StackEnvironment.h"
#include "api/ThreadHandle.h"
#include "base/DbgLog.h"
#include "base/FieldText.h"
#include "base/Undestroyed.h"
#include "base/ptptime.h"
#include "profile/InterfaceLock.h"
#include "profile/Profile.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

using daemon_threads::StartClaim;

/** Threads are made once in a process, so there is no way back from kMade unless the profile has
 *  startAfterDestroy. */
enum StartState : unsigned char { kNeverStarted, kPending, kMade };

unsigned char startState = kNeverStarted;
ThreadHandle mainThread;

/** One step of the start; false when the state was not the one to step from. The state found is
 *  left in the first argument. */
bool stepStart(unsigned char& from, StartState to) {
    return __atomic_compare_exchange_n(&startState, &from, static_cast<unsigned char>(to), false,
                                       __ATOMIC_RELAXED, __ATOMIC_RELAXED);
}

void setStart(StartState state) {
    __atomic_store_n(&startState, static_cast<unsigned char>(state), __ATOMIC_RELAXED);
}

pthread_mutex_t endMutex = PTHREAD_MUTEX_INITIALIZER;

/** One Destroy at a time: a thread is joined once. */
class EndLock {
public:
    EndLock() { pthread_mutex_lock(&endMutex); }
    ~EndLock() { pthread_mutex_unlock(&endMutex); }
    EndLock(const EndLock&) = delete;
    EndLock& operator=(const EndLock&) = delete;
};

pthread_mutex_t publishedMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t publishedCondition = PTHREAD_COND_INITIALIZER;
bool published = false;

void setPublished(bool value) {
    pthread_mutex_lock(&publishedMutex);
    published = value;
    pthread_cond_broadcast(&publishedCondition);
    pthread_mutex_unlock(&publishedMutex);
}

/** Until the main thread has published its names, which the getters go by, but not for long. */
void awaitPublished() {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += kQuickSettleNs;
    if (end.tv_nsec >= static_cast<long>(kNsPerSecond)) {
        end.tv_nsec -= static_cast<long>(kNsPerSecond);
        ++end.tv_sec;
    }
    pthread_mutex_lock(&publishedMutex);
    while (!published && pthread_cond_clockwait(&publishedCondition, &publishedMutex,
                                                CLOCK_MONOTONIC, &end) == 0) {
    }
    pthread_mutex_unlock(&publishedMutex);
}

void cancelPumps() {
    const TSynInstanceConfig& cfg = InterfaceDataManager::getInstance()->block.cfg;
    if (cfg.role != 0) {
        ThreadHandle::cancel(ThreadKind::kSender);
        ThreadHandle::cancel(ThreadKind::kAnnounce);
    } else if (cfg.PropagationDelay == 0) {
        ThreadHandle::cancel(ThreadKind::kSender);
    }
    ThreadHandle::cancel(ThreadKind::kInput);
    ThreadHandle::cancel(ThreadKind::kMain);
}

/** A log whose reader has gone costs lines, not the process. */
void ignoreClosedLog() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/** Ends a pending start when the main thread is left, by return or by cancellation. */
struct PendingStartEnd {
    PendingStartEnd() = default;
    ~PendingStartEnd() { daemon_threads::endPendingStart(); }
    PendingStartEnd(const PendingStartEnd&) = delete;
    PendingStartEnd& operator=(const PendingStartEnd&) = delete;
};

/** Runs the role with SOCK pointing at the configured stack. */
void runRole(const InstanceBlock& block, const char* stack, char* interfaceName) {
    stack_environment::enterRun(stack);
    if (profile::current().eventPumps != 0) {
        runEventRole(interfaceName);
        condvar.notify_one();
        stack_environment::restore();
        return;
    }
    if (block.cfg.role != 0) {
        MasterThread(interfaceName);
    } else {
        SlaveThread(interfaceName);
    }
    condvar.notify_one();  // for a host that waits for the role's end
    usleep(kBeforeRestoringSock);
    stack_environment::restore();
}

}  // namespace

StartClaim daemon_threads::claimStart() {
    unsigned char found = kNeverStarted;
    if (stepStart(found, kPending)) {
        return StartClaim::kCreate;
    }
    return found == kPending || isRunning() ? StartClaim::kStillRunning : StartClaim::kRestart;
}

bool daemon_threads::wasStarted() {
    return __atomic_load_n(&startState, __ATOMIC_RELAXED) != kNeverStarted;
}

bool daemon_threads::takeInterface(const char* interfaceName) {
    const int owner = profile::current().oneDaemon != 0 ? interface_lock::take(interfaceName) : 0;
    if (owner != 0) {
        ZEB_LOG_REFUSAL("Start refused: process %d runs a daemon on %s\n", owner, interfaceName);
    } else if (segmentSteps.mayStart(interfaceName)) {
        return true;
    } else {
        interface_lock::release();
    }
    setStart(kNeverStarted);
    return false;
}

void daemon_threads::createMain(void* record) {
    const TSynProfile& profile = profile::current();
    const bool detached = profile.eventPumps == 0 && profile.startAfterDestroy == 0;
    if (profile.eventPumps != 0) {
        loop_orders::open();
    }
    setPublished(false);
    if (!mainThread.create({ThreadKind::kMain, MainEntryPointSharedLibrary, record, "TSyn_Main"},
                           "", detached)) {
        setStart(kNeverStarted);
        interface_lock::release();
    }
    if (profile.quickStart == 0) {
        usleep(kSettle);
    } else {
        awaitPublished();
    }
}

void daemon_threads::endPendingStart() {
    unsigned char from = kPending;
    stepStart(from, kMade);
}

void daemon_threads::endAll() {
    const TSynProfile& profile = profile::current();
    if (profile.eventPumps == 0) {
        cancelPumps();
    }
    if (profile.eventPumps == 0 && profile.startAfterDestroy == 0) {
        return;
    }
    const EndLock lock;
    loop_orders::end();
    mainThread.join();  // first: it may be joining pumps itself
    ThreadHandle::joinAll();
    freeCancelledRole();
    interface_lock::release();
    if (profile.startAfterDestroy != 0) {
        setRunning(false);
        setStart(kNeverStarted);
    }
}

void DisableUsrSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
        std::fprintf(stderr, "Failed to block SIGUSR1\n");
        return;
    }
    if (profile::current().quickStart == 0) {
        usleep(kAfterBlockingSignals);
    }
}

ZEB_ENTRY void* MainEntryPointSharedLibrary(void* record) {
    noteDaemonThread();
    const PendingStartEnd pending;
    if (logSteps != nullptr) {
        ignoreClosedLog();
    }
    const auto& block = *static_cast<const InstanceBlock*>(record);
    ZEB_LOG(kAlways,
            "Velto daemon [libZebEthTimeSynDaemon.so] daemon created on %s at %s, "
            "DbgTraceLevel=%d\n",
            kBuildDate, kBuildTime, traceLevel());
    const auto stack = fieldText(block.cfg.ethStackIdent);
    auto interfaceName = fieldText(block.cfg.interfaceName);
    ZEB_LOG(kAlways, "Params: %s %s %s %s\n", stack.c_str(), interfaceName.c_str(),
            block.cfg.role != 0 ? "-T" : "-L", "-Xp");
    EthStackIdent = stack.c_str();
    nameSegment(std::string("/") + interfaceName.c_str());
    devname = std::string(stack.c_str()) + "/dev/bpf";
    ZEB_LOG(kAlways, "Interface: %s\n", interfaceName.c_str());
    ZEB_LOG(kAlways, "Argument[1]:%s \n", interfaceName.c_str());
    netifname = interfaceName.c_str();
    DisableUsrSignals();
    setRunning(true);
    daemon_threads::endPendingStart();
    setPublished(true);
    runRole(block, stack.c_str(), interfaceName.data());
    ZEB_LOG(kAlways, "*** Leaving MainEntryPointSharedLibrary('*%s' '%s') ***\n", stack.c_str(),
            interfaceName.c_str());
    return nullptr;
}

ZEB_PLAIN_NAME(void*, MainEntryPointSharedLibrary, (void* record),
               "_Z27MainEntryPointSharedLibraryPv");
