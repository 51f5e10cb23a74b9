#include "api/DaemonThreads.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "api/BuildStamp.h"
#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "api/Pauses.h"
#include "api/Roles.h"
#include "api/StackEnvironment.h"
#include "api/ThreadHandle.h"
#include "base/DbgLog.h"
#include "base/FieldText.h"
#include "base/Undestroyed.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

using daemon_threads::StartClaim;

/** Threads are made once in a process, so there is no way back from kMade. */
enum StartState : unsigned char { kNeverStarted, kPending, kMade };

unsigned char startState = kNeverStarted;
ThreadHandle mainThread;

/** One step of the start; false when the state was not the one to step from. The state found is
 *  left in the first argument. */
bool stepStart(unsigned char& from, StartState to) {
    return __atomic_compare_exchange_n(&startState, &from, static_cast<unsigned char>(to), false,
                                       __ATOMIC_RELAXED, __ATOMIC_RELAXED);
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

void daemon_threads::createMain(void* record) {
    if (!mainThread.create({ThreadKind::kMain, MainEntryPointSharedLibrary, record, "TSyn_Main"},
                           "", true)) {
        __atomic_store_n(&startState, static_cast<unsigned char>(kNeverStarted), __ATOMIC_RELAXED);
    }
}

void daemon_threads::endPendingStart() {
    unsigned char from = kPending;
    stepStart(from, kMade);
}

void DisableUsrSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
        std::fprintf(stderr, "Failed to block SIGUSR1\n");
        return;
    }
    usleep(kAfterBlockingSignals);
}

ZEB_ENTRY void* MainEntryPointSharedLibrary(void* record) {
    noteDaemonThread();
    const PendingStartEnd pending;
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
    runRole(block, stack.c_str(), interfaceName.data());
    ZEB_LOG(kAlways, "*** Leaving MainEntryPointSharedLibrary('*%s' '%s') ***\n", stack.c_str(),
            interfaceName.c_str());
    return nullptr;
}

ZEB_PLAIN_NAME(void*, MainEntryPointSharedLibrary, (void* record),
               "_Z27MainEntryPointSharedLibraryPv");
