#include "include/ZebEthTimeSynSupportInterface.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <iterator>
#include <limits>

#include "api/DaemonState.h"
#include "api/DaemonThreads.h"
#include "api/InterfaceDataManager.h"
#include "api/LoopOrders.h"
#include "api/MessagePumps.h"
#include "api/StackEnvironment.h"
#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "base/FieldText.h"
#include "base/ptptime.h"
#include "platform/i210helper.h"
#include "timebase/TimeChanges.h"
#include "timebase/TimeRecord.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

using daemon_threads::StartClaim;

constexpr int kCreateLogLine = 1297;  // log readers look for this line number
constexpr double kShortestSyncInterval = 125.0;
constexpr int kMaxVlanId = 4096;
constexpr unsigned int kMaxVlanPriority = 7;
constexpr unsigned int kMaxDomain = 15;
constexpr unsigned long long kMaxSoftSeconds = 4611686018ULL;  // times 10^9 stays below 2^62
constexpr unsigned char kMaxUserData = 3;
constexpr unsigned char kSettableStatusBits = 0x0C;
constexpr int kGlobalTimeBaseShift = 3;

unsigned int statusCalls = 0;

InstanceBlock& instanceBlock() {
    return InterfaceDataManager::getInstance()->block;
}

/** Also where nothing is read of it: whichever function a host calls first makes the instance, and
 *  ends the process when the trace level is too high. */
void requireInstance() {
    InterfaceDataManager::getInstance();
}

/** The interface's shared record, null without one: exhausted memory must not throw into a host. */
gPtpTimeDataStruct* sharedRecord(const TSynInstanceConfig& cfg) {
    try {
        return OSipc::instance(fieldText(cfg.interfaceName).c_str());
    } catch (const std::exception&) {
        return nullptr;
    }
}

/** The low 32 bits of the interval's representation: what the refusal line has always shown. */
int lowWordOf(double value) {
    int word = 0;
    std::memcpy(&word, &value, sizeof word);
    return word;
}

template <typename Value>
void putIfWanted(Value* output, Value value) {
    if (output != nullptr) {
        *output = value;
    }
}

template <typename Value>
void fillWithOnes(Value* output) {
    putIfWanted(output, std::numeric_limits<Value>::max());
}

void putSeconds(long long time, unsigned long long* seconds, unsigned int* nanoseconds) {
    constexpr long long kSecond = kNsPerSecond;
    putIfWanted(seconds, static_cast<unsigned long long>(time / kSecond));
    putIfWanted(nanoseconds, static_cast<unsigned int>(time % kSecond));
}

void putSubTlvReport(const InstanceBlock& block, TSynSubTlvReport* report) {
    if (report == nullptr) {
        return;
    }
    report->count = block.subTlvCount;
    const unsigned int entries =
        std::min<unsigned int>(block.subTlvCount, std::size(block.subTlvValid));
    for (unsigned int i = 0; i < entries; ++i) {
        report->crcKinds[i] = block.subTlvCrcKinds[i];
        report->valid[i] = block.subTlvValid[i];
    }
}

void putUserData(const InstanceBlock& block, TSynUserData* userData) {
    if (userData == nullptr) {
        return;
    }
    // A received length may be anything; the host's record has room for three bytes.
    std::copy_n(block.userBytes, std::min(block.userDataLength, kMaxUserData), userData->bytes);
    userData->length = block.userDataLength;
}

/** Applies user data as a host gives it: a length byte and three bytes. */
bool storeUserData(const unsigned char* data) {
    if (data[0] > kMaxUserData) {
        return false;
    }
    InstanceBlock& block = instanceBlock();
    block.userDataLength = data[0];
    for (unsigned char i = 0; i < kMaxUserData; ++i) {
        block.userBytes[i] = i < data[0] ? data[i + 1] : 0;
    }
    return true;
}

/** As asked for by a host that is about to set the time. */
void wakeSendersIf(unsigned char notify) {
    if (notify != 0) {
        wakeSenders();
    }
}

/** The same of the event loop, once the time is set: its turn would hold the host up before, and
 *  tell of the time that has been. */
void orderTurnIf(unsigned char notify) {
    if (notify != 0) {
        loop_orders::sendNow();
    }
}

}  // namespace

ZEB_ENTRY int ZebEthTSynInterface_Create(const TSynInstanceConfig* cfg) {
    if (cfg == nullptr) {
        return -1;
    }
    ZEB_LOG_AT(kAlways, kCreateLogLine, "Creating instance for interface: %s ...\n",
               fieldText(cfg->interfaceName).c_str());
    int result = 0;
    if (kShortestSyncInterval > cfg->syncInterval) {
        ZEB_LOG(kError, "Invalid Sync interval: %d. Sync intarval should be >= 125 ms ...\n",
                lowWordOf(cfg->syncInterval));
        result = -1;
    }
    if (cfg->VlanID > kMaxVlanId) {
        ZEB_LOG(kError, "Invalid parameter VlanID: %d\n", cfg->VlanID);
        result = -1;
    } else if (cfg->VlanPrio > kMaxVlanPriority) {
        ZEB_LOG(kError, "Invalid parameter VlanPrio: %d\n", static_cast<int>(cfg->VlanPrio));
        result = -1;
    } else if (cfg->Domain > kMaxDomain) {
        ZEB_LOG(kError, "Invalid parameter Domain: %d\n", cfg->Domain);
        result = -1;
    }
    // A refused configuration is stored as well: hosts correct it with the next Create.
    InterfaceDataManager::getInstance(cfg)->block.timeBaseStatus = 0;
    return result;
}

ZEB_ENTRY int ZebEthTSynInterface_Destroy(void) {
    requireInstance();
    ZEB_LOG(kAlways, "Destroying threads ...\n");
    daemon_threads::endAll();
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_getDaemonStatus(unsigned int /*handle*/, unsigned int* callCount1,
                                                  unsigned int* callCount2,
                                                  unsigned int* callCount3,
                                                  unsigned char* callCountByte) {
    requireInstance();
    const auto calls =
        static_cast<unsigned char>(__atomic_fetch_add(&statusCalls, 1, __ATOMIC_RELAXED));
    putIfWanted<unsigned int>(callCount1, calls);
    putIfWanted<unsigned int>(callCount2, calls);
    putIfWanted<unsigned int>(callCount3, calls);
    putIfWanted(callCountByte, calls);
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_Start(unsigned int /*handle*/, const char* stackIdent,
                                        const char* ifName) {
    InstanceBlock& block = instanceBlock();
    if (block.cfg.argumentCount > 1) {
        if (stackIdent != nullptr) {
            setFieldText(block.cfg.ethStackIdent, stackIdent);
        }
        if (ifName != nullptr) {
            setFieldText(block.cfg.interfaceName, ifName);
        }
    }
    switch (daemon_threads::claimStart()) {
    case StartClaim::kStillRunning:
        ZEB_LOG(kAlways, "Threads are still running...\n");
        break;
    case StartClaim::kRestart:
        ZEB_LOG(kAlways, "Restarting threads ...\n");
        setRunning(true);
        loop_orders::sendNow();
        break;
    case StartClaim::kCreate:
        if (!daemon_threads::takeInterface(fieldText(block.cfg.interfaceName).c_str())) {
            return -1;
        }
        ZEB_LOG(kAlways, "Creating and starting threads ...\n");
        DisableUsrSignals();
        daemon_threads::createMain(&block);
        break;
    }
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_Stop(void) {
    InstanceBlock& block = instanceBlock();
    ZEB_LOG(kAlways, "Stopping threads ...\n");
    block.userDataLength = 0;
    daemon_threads::endPendingStart();
    setRunning(false);
    loop_orders::notice();
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_GetCurrentTime(
    unsigned int /*handle*/, unsigned long long* seconds, unsigned int* nanoseconds,
    unsigned short* sequenceId, unsigned int* pathDelay, unsigned int* rejectedSyncs,
    unsigned int* timeBaseStatus, TSynSubTlvReport* subTlvs, TSynUserData* userData) {
    gPtpTimeDataStruct* record = nullptr;
    InstanceBlock* block = nullptr;
    if (isRunning()) {
        block = &instanceBlock();
        record = sharedRecord(block->cfg);
    }
    if (record == nullptr) {
        fillWithOnes(seconds);
        fillWithOnes(nanoseconds);
        fillWithOnes(sequenceId);
        fillWithOnes(pathDelay);
        fillWithOnes(rejectedSyncs);
        fillWithOnes(timeBaseStatus);
        putIfWanted(userData, TSynUserData{});
        return 0;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long time = timeChanges.hostTimeNs(*record, toNs(now));
    putSeconds(time, seconds, nanoseconds);
    putIfWanted(sequenceId, static_cast<unsigned short>(record->sequenceId));
    // A configured delay also replaces the measured one in the record, where a slave looks it up.
    TimeRecord(record).useFixedDelay(block->cfg.PropagationDelay);
    block->lastPathDelay = static_cast<unsigned int>(record->linkDelay);
    putIfWanted<unsigned int>(pathDelay, block->lastPathDelay);
    putIfWanted<unsigned int>(rejectedSyncs, record->rejectedSync);
    putIfWanted<unsigned int>(timeBaseStatus, block->timeBaseStatus);
    putSubTlvReport(*block, subTlvs);
    putUserData(*block, userData);
    return static_cast<int>(static_cast<unsigned int>(time));
}

ZEB_ENTRY int ZebEthTSynInterface_GetMasterTime(unsigned int /*handle*/,
                                                unsigned long long* seconds,
                                                unsigned int* nanoseconds) {
    const TSynInstanceConfig& cfg = instanceBlock().cfg;
    // Exactly 1, narrower than the role test elsewhere: hosts use it to tell plain masters.
    if (cfg.role != 1) {
        putSeconds(0, seconds, nanoseconds);
        return -1;
    }
    putSeconds(i210helper::e1000_ptp_get_time(fieldText(cfg.interfaceName).c_str()), seconds,
               nanoseconds);
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetHardTime(unsigned int /*handle*/, unsigned long long seconds,
                                              unsigned int nanoseconds, unsigned char notify) {
    const TSynInstanceConfig& cfg = instanceBlock().cfg;
    wakeSendersIf(notify);
    const StackScope scope(fieldText(cfg.ethStackIdent).c_str());
    const auto low = static_cast<unsigned int>(seconds);
    timeChanges.onHardTime(fieldText(cfg.interfaceName).c_str(), toNs(low, nanoseconds));
    i210helper::e1000_ptp_set_time(fieldText(cfg.interfaceName).c_str(), 0, low, nanoseconds);
    orderTurnIf(notify);
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetSoftTime(unsigned int /*handle*/, unsigned long long seconds,
                                              unsigned int nanoseconds, unsigned char notify) {
    if (seconds > kMaxSoftSeconds) {
        ZEB_LOG(kError, "Too big time as secons to set %llu ...\n", seconds);
        return -1;
    }
    const TSynInstanceConfig& cfg = instanceBlock().cfg;
    gPtpTimeDataStruct* const record = sharedRecord(cfg);
    wakeSendersIf(notify);
    i210helper::set_stack_Id(fieldText(cfg.ethStackIdent).c_str());
    const long long hardware = i210helper::e1000_ptp_get_time(fieldText(cfg.interfaceName).c_str());
    if (hardware == 0) {
        ZEB_LOG(kError, "... i210helper::e1000_ptp_get_time() failed! \n");
        return -1;
    }
    if (record == nullptr) {
        return -1;
    }
    const auto target = static_cast<long long>(toNs(seconds, nanoseconds));
    const long long before = TimeRecord(record).softOffset();
    const long long offset = hardware > 0 && target > 0 ? target - hardware : 0;
    timeChanges.onSoftTime(signedDiff(static_cast<unsigned long long>(offset),
                                      static_cast<unsigned long long>(before)));
    TimeRecord(record).setSoftOffset(offset);
    orderTurnIf(notify);
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetTime(unsigned int handle, unsigned long long seconds,
                                          unsigned int nanoseconds, unsigned char notify,
                                          const unsigned char* userData) {
    requireInstance();
    if (userData != nullptr && !storeUserData(userData)) {
        ZEB_LOG(kError, "Wrong user data length ...\n");
        return -1;
    }
    return ZebEthTSynInterface_SetSoftTime(handle, seconds, nanoseconds, notify);
}

ZEB_ENTRY int ZebEthTSynInterface_SetStatus(unsigned int /*handle*/, unsigned char status) {
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if (status > 1) {
        ZEB_LOG(kError, "Setting Invalid Status :0x%x ... \n", status);
        return -1;
    }
    if (instance == nullptr) {
        ZEB_LOG(kError, "Invalid InterfaceDataManager ... \n");
        return -1;
    }
    if (instance->block.cfg.role != 0) {
        instance->block.timeBaseStatus = static_cast<unsigned char>(status << kGlobalTimeBaseShift);
    }
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetTimeBaseStatus(unsigned int /*handle*/, unsigned char status) {
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    if ((status & ~kSettableStatusBits) != 0) {
        ZEB_LOG(kError, "Setting Invalid Status :0x%x ... \n", status);
        return -1;
    }
    if (instance == nullptr) {
        ZEB_LOG(kError, "Invalid InterfaceDataManager ... \n");
        return -1;
    }
    if (instance->block.cfg.role != 0) {
        instance->block.timeBaseStatus = status;
    }
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetUserData(unsigned int /*handle*/, const unsigned char* data) {
    requireInstance();
    if (data == nullptr) {
        return 0;
    }
    if (!storeUserData(data)) {
        ZEB_LOG(kError, "Wrong user data length ...\n");
        return -1;
    }
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetTxMode(unsigned int /*handle*/, unsigned int txMode,
                                            unsigned int txCrcMode) {
    InstanceBlock& block = instanceBlock();
    if (block.cfg.role != 0) {
        block.cfg.TxMode = txMode;
    }
    block.cfg.TxCrcMode = txCrcMode;
    return 0;
}
