#include "api/DaemonThreads.h"

#include <net/if.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "api/BuildStamp.h"
#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "api/MessagePumps.h"
#include "base/DbgLog.h"
#include "base/FieldText.h"
#include "base/MutexLock.h"
#include "platform/i210helper.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

using daemon_threads::Thread;

constexpr useconds_t kOneSecond = 1000000;
constexpr useconds_t kSettleMicroseconds = 120757;
constexpr std::size_t kThreadNameSize = 16;
constexpr int kThreads = 4;
constexpr int kAnnouncePeriodMs = 1000;
constexpr double kSyncsPerPdelay = 8.0;

struct ThreadSlot {
    pthread_t handle;
    bool alive;
};

ThreadSlot slots[kThreads];
pthread_mutex_t slotMutex = PTHREAD_MUTEX_INITIALIZER;
unsigned char startPending = 0;

// A private copy: setenv may move what getenv returned. Never destroyed, since pumps read it.
const std::string* savedSock = nullptr;

/** What a thread of the daemon is started with. */
struct ThreadStart {
    void* (*body)(void*);
    void* argument;
    Thread thread;
};

// What the pumps use. Kept here rather than on the role's stack: a pump may outlive a cancelled
// role thread.
InputPumpRecord* inputPump = nullptr;
OutputPumpRecord* senderPump = nullptr;
OutputPumpRecord* announcePump = nullptr;

/** Marks a thread as ended when its body is left, by return or by cancellation. */
class AliveMark {
public:
    explicit AliveMark(Thread thread) : slot_(slots[static_cast<int>(thread)]) {}
    ~AliveMark() {
        pthread_mutex_lock(&slotMutex);
        slot_.alive = false;
        pthread_mutex_unlock(&slotMutex);
    }
    AliveMark(const AliveMark&) = delete;
    AliveMark& operator=(const AliveMark&) = delete;

private:
    ThreadSlot& slot_;
};

void* runThread(void* argument) {
    const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(argument));
    const AliveMark mark(start->thread);
    return start->body(start->argument);
}

/** Creates a thread named from a format with one %s; a name is cut to 15 characters. */
void createThread(const ThreadStart& start, bool detached, const char* nameFormat,
                  const char* ifName) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (detached) {
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    }
    auto argument = std::make_unique<ThreadStart>(start);
    ThreadSlot& slot = slots[static_cast<int>(start.thread)];
    {
        // Held across the creation, so that the thread cannot end before its slot is filled.
        const MutexLock lock(slotMutex);
        if (pthread_create(&slot.handle, &attributes, runThread, argument.get()) == 0) {
            static_cast<void>(argument.release());  // the thread owns it now
            slot.alive = true;
            char name[kThreadNameSize];
            // Cut on purpose: the kernel keeps 15 characters.
            static_cast<void>(std::snprintf(name, sizeof name, nameFormat, ifName));
            pthread_setname_np(slot.handle, name);
        }
    }
    pthread_attr_destroy(&attributes);
}

void joinThread(Thread thread) {
    const pthread_t handle = slots[static_cast<int>(thread)].handle;
    if (handle != 0) {
        pthread_join(handle, nullptr);
    }
}

template <typename Record>
Record* allocateRecord(const Record& contents) {
    auto* const record = static_cast<Record*>(std::malloc(sizeof(Record)));
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    *record = contents;
    return record;
}

/** Whole milliseconds; what no int holds becomes the longest period rather than a flood. */
int wholeMilliseconds(double milliseconds) {
    constexpr int kLongest = 2147483647;
    constexpr double kShortest = -2147483648.0;
    if (!(milliseconds > kShortest - 1 && milliseconds < kLongest + 1.0)) {
        return kLongest;
    }
    return static_cast<int>(milliseconds);
}

void startInputPump(NetworkService<sock>* service, const char* nameFormat, const char* ifName) {
    inputPump = allocateRecord(InputPumpRecord{service, new PTPMessageFactory});
    createThread({InputThreader, inputPump, Thread::kInput}, false, nameFormat, ifName);
}

void startOutputPump(OutputPumpRecord*& pump, const OutputPumpRecord& contents, Thread thread,
                     const char* nameFormat, const char* ifName) {
    pump = allocateRecord(contents);
    createThread({OutputThreader, pump, thread}, false, nameFormat, ifName);
}

void release(OutputPumpRecord*& pump) {
    if (pump != nullptr) {
        delete pump->message;
        std::free(pump);
        pump = nullptr;
    }
}

/** Frees what the pumps used, once all of them have ended. */
void releasePumps() {
    release(senderPump);
    release(announcePump);
    delete inputPump->service;
    delete inputPump->factory;
    std::free(inputPump);
    inputPump = nullptr;
}

/** The low 16 bits of the interface index, which are the PTP port number; 0 (logged) when the
 *  interface does not exist. */
unsigned short portNumberOf(const char* ifName, const char* role) {
    const unsigned int index = if_nametoindex(ifName);
    if (index == 0) {
        ZEB_LOG_AS(role, kError, "Error occured due to %s\n", strerror(errno));
    } else {
        ZEB_LOG_AS(role, kDebug, "Port index: %d\n", static_cast<int>(index & 0xFFFF));
    }
    return static_cast<unsigned short>(index);
}

void waitForCountedThreads() {
    while (__atomic_load_n(&threadCount, __ATOMIC_RELAXED) != 0) {
        usleep(kOneSecond);
    }
}

void setHardwareClockToSystemTime(const char* ifName, const char* role) {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return;
    }
    const auto seconds = static_cast<unsigned int>(now.tv_sec);
    const auto nanoseconds = static_cast<unsigned int>(now.tv_nsec);
    ZEB_LOG_AS(role, kAlways, "system time is: %d.%09u \n", static_cast<int>(seconds), nanoseconds);
    if (i210helper::e1000_ptp_set_time(ifName, 0, seconds, nanoseconds) != 0) {
        ZEB_LOG_AS(role, kAlways, "time is set to: %lld\n", i210helper::e1000_ptp_get_time(ifName));
    }
}

}  // namespace

void restoreSavedSock() {
    if (savedSock != nullptr) {
        setenv("SOCK", savedSock->c_str(), 1);
    }
}

bool daemon_threads::wasStarted() {
    return slots[static_cast<int>(Thread::kMain)].handle != 0;
}

bool daemon_threads::isStartPending() {
    return __atomic_load_n(&startPending, __ATOMIC_RELAXED) != 0;
}

void daemon_threads::clearStartPending() {
    __atomic_store_n(&startPending, 0, __ATOMIC_RELAXED);
}

void daemon_threads::start(void* record) {
    __atomic_store_n(&startPending, 1, __ATOMIC_RELAXED);
    createThread({MainEntryPointSharedLibrary, record, Thread::kMain}, true, "TSyn_Main", "");
}

void daemon_threads::cancel(Thread thread) {
    const MutexLock lock(slotMutex);
    const ThreadSlot& slot = slots[static_cast<int>(thread)];
    if (slot.handle != 0 && slot.alive) {
        pthread_cancel(slot.handle);
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
    usleep(kOneSecond);
}

namespace {

/** Runs the role with SOCK pointing at the configured stack. */
void runRole(const InstanceBlock& block, const std::string& stack, std::string interfaceName) {
    if (const char* found = std::getenv("SOCK")) {
        savedSock = new std::string(found);
    }
    setenv("SOCK", stack.c_str(), 1);
    if (block.cfg.role != 0) {
        MasterThread(interfaceName.data());
    } else {
        SlaveThread(interfaceName.data());
    }
    daemon_threads::clearStartPending();
    condvar.notify_one();
    usleep(kOneSecond);
    restoreSavedSock();
}

}  // namespace

ZEB_EXPORT void* MainEntryPointSharedLibrary(void* record) {
    const auto& block = *static_cast<const InstanceBlock*>(record);
    ZEB_LOG(kAlways,
            "Velto daemon [libZebEthTimeSynDaemon.so] daemon created on %s at %s, "
            "DbgTraceLevel=%d\n",
            kBuildDate, kBuildTime, traceLevel());
    const std::string stack = fieldText(block.cfg.ethStackIdent);
    const std::string interfaceName = fieldText(block.cfg.interfaceName);
    ZEB_LOG(kAlways, "Params: %s %s %s %s\n", stack.c_str(), interfaceName.c_str(),
            block.cfg.role != 0 ? "-T" : "-L", "-Xp");
    EthStackIdent = stack;
    nameSegment("/" + interfaceName);
    devname = stack + "/dev/bpf";
    ZEB_LOG(kAlways, "Interface: %s\n", interfaceName.c_str());
    ZEB_LOG(kAlways, "Argument[1]:%s \n", interfaceName.c_str());
    netifname = interfaceName;
    DisableUsrSignals();
    setRunning(true);
    daemon_threads::clearStartPending();
    runRole(block, stack, interfaceName);
    ZEB_LOG(kAlways, "*** Leaving MainEntryPointSharedLibrary('*%s' '%s') ***\n", stack.c_str(),
            interfaceName.c_str());
    return nullptr;
}

void MasterThread(char* ifName) {
    const TSynInstanceConfig& cfg = InterfaceDataManager::getInstance()->block.cfg;
    auto* const service = new NetworkService<sock>(ifName);
    if (ifName == nullptr) {
        ZEB_LOG(kError, "Parameter arg is invalid (NULL) ... \n");
        delete service;
        return;
    }
    ZEB_LOG(kAlways, "arg: %s\n", ifName);
    __atomic_store_n(&MasterOrSlave, '1', __ATOMIC_RELAXED);
    ZEB_LOG(kAlways, "Starting as Master ... interface=%s\n", ifName);
    setHardwareClockToSystemTime(ifName, __func__);
    const unsigned short port = portNumberOf(ifName, __func__);
    if (port == 0) {
        delete service;
        return;
    }
    auto* const sync = new PTPMsgSync(cfg.Domain, port);
    const int periodMs = wholeMilliseconds(cfg.syncInterval);
    ZEB_LOG(kAlways, "tdata_m -> idelay: %d\n", periodMs);
    ZEB_LOG(kDebug, "EnableAutosarExtensions: %d \n", cfg.EnableAutosarExtensions);
    ZEB_LOG(kDebug, "PropagationDelay: %d \n", cfg.PropagationDelay);
    startOutputPump(senderPump, {service, sync, &cvout, periodMs}, Thread::kSender, "TSyn_MSyn_%s",
                    ifName);
    auto* const announce = new PTPMsgAnnounce(cfg.Domain, port);
    ZEB_LOG(kAlways, "tdata_m -> idelay: %d\n", kAnnouncePeriodMs);
    startOutputPump(announcePump, {service, announce, &cv_announce, kAnnouncePeriodMs},
                    Thread::kAnnounce, "TSyn_MAnn_%s", ifName);
    startInputPump(service, "TSyn_MInp_%s", ifName);
    restoreSavedSock();

    joinThread(Thread::kInput);
    joinThread(Thread::kSender);
    joinThread(Thread::kAnnounce);
    usleep(kSettleMicroseconds);
    releasePumps();
    waitForCountedThreads();
}

void SlaveThread(char* ifName) {
    const TSynInstanceConfig& cfg = InterfaceDataManager::getInstance()->block.cfg;
    auto* const service = new NetworkService<sock>(ifName);
    if (ifName == nullptr) {
        ZEB_LOG(kError, "Parameter arg is invalid (NULL) ... \n");
        delete service;
        return;
    }
    __atomic_store_n(&MasterOrSlave, '2', __ATOMIC_RELAXED);
    ZEB_LOG(kAlways, "%s(%d): Starting as slave ... interface=%s\n", __func__, __LINE__, ifName);
    i210helper::e1000_ptp_get_time(ifName);
    startInputPump(service, "TSyn_SInp_%s", ifName);
    restoreSavedSock();
    const unsigned short port = portNumberOf(ifName, __func__);
    if (port == 0) {
        return;  // the input pump goes on using what was allocated for it
    }
    auto request = std::make_unique<PTPMsgPathDelayReq>(cfg.Domain, port);
    ZEB_LOG(kDebug, "PropagationDelay: %d\n", cfg.PropagationDelay);
    if (cfg.PropagationDelay == 0) {
        const int periodMs = wholeMilliseconds(cfg.syncInterval * kSyncsPerPdelay);
        ZEB_LOG(kDebug, "tdata -> idelay: %d\n", periodMs);
        startOutputPump(senderPump, {service, request.release(), &cvout, periodMs}, Thread::kSender,
                        "TSyn_SOutp_%s", ifName);
        joinThread(Thread::kSender);
    }
    joinThread(Thread::kInput);
    releasePumps();
    waitForCountedThreads();
}

ZEB_PLAIN_NAME(void*, MainEntryPointSharedLibrary, (void* record),
               "_Z27MainEntryPointSharedLibraryPv");
