#include "api/Roles.h"

#include <unistd.h>

#include <memory>
#include <optional>
#include <utility>

#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "api/Pauses.h"
#include "api/Pump.h"
#include "api/RoleSteps.h"
#include "api/StackEnvironment.h"
#include "base/DbgLog.h"
#include "platform/i210helper.h"
#include "ptp/LinkDelay.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

/** What one role opens and starts. Members end in reverse order: the service, then the messages,
 *  the factory of the input pump and the records. */
struct Role {
    const char* ifName;
    Pump input;
    Pump announce;
    Pump sender;
    std::unique_ptr<NetworkService<sock>> service;
};

/** Opens the service before it looks at the name: the lines of the opening come first in the log
 *  of a missing name, too. Null when the name is missing. */
std::unique_ptr<Role> openRole(const char* function, const char* ifName) {
    auto role = std::make_unique<Role>();
    role->ifName = ifName;
    role->service = std::make_unique<NetworkService<sock>>(ifName);
    if (ifName == nullptr) {
        ZEB_LOG_AS(function, kError, "Parameter arg is invalid (NULL) ... \n");
        return nullptr;
    }
    return role;
}

Role* shared = nullptr;  // with pumps that may run

/** Takes the role from its thread before the first pump starts. Destroy cancels the thread and the
 *  pumps together; a pump that has not ended when the thread unwinds still uses all of it. */
Role& shareWithPumps(std::unique_ptr<Role> role) {
    shared = role.release();
    return *shared;
}

/** Once every pump was joined. */
std::unique_ptr<Role> takeBack() {
    std::unique_ptr<Role> role(shared);
    shared = nullptr;
    return role;
}

void startSender(Role& role, std::unique_ptr<PTPMessage> message, int periodMs,
                 const char* nameFormat) {
    role.sender.startOutput(*role.service,
                            {ThreadKind::kSender, std::move(message), &cvout, periodMs, nameFormat},
                            role.ifName);
}

/** Sockets are open from here on, so SOCK is the host's again. */
void startInput(Role& role, const char* nameFormat) {
    role.input.startInput(*role.service, nameFormat, role.ifName);
    stack_environment::restore();
}

void waitForCountedThreads() {
    while (__atomic_load_n(&threadCount, __ATOMIC_RELAXED) != 0) {
        usleep(kThreadCountPoll);
    }
}

}  // namespace

void freeCancelledRole() {
    takeBack().reset();
}

void MasterThread(char* ifName) {
    const TSynInstanceConfig& cfg = InterfaceDataManager::getInstance()->block.cfg;
    std::unique_ptr<Role> opened = openRole(__func__, ifName);
    if (opened == nullptr) {
        return;
    }
    ZEB_LOG(kAlways, "arg: %s\n", ifName);
    setRoleMark('1');
    ZEB_LOG(kAlways, "Starting as Master ... interface=%s\n", ifName);
    setHardwareClockToSystemTime(__func__, ifName);
    const std::optional<unsigned short> port = portNumber(__func__, ifName);
    if (!port.has_value()) {
        return;
    }
    Role& role = shareWithPumps(std::move(opened));
    auto sync = std::make_unique<PTPMsgSync>(cfg.Domain, *port);
    const int periodMs = wholeMilliseconds(cfg.syncInterval);
    ZEB_LOG(kAlways, "tdata_m -> idelay: %d\n", periodMs);
    ZEB_LOG(kDebug, "EnableAutosarExtensions: %d \n", cfg.EnableAutosarExtensions);
    ZEB_LOG(kDebug, "PropagationDelay: %d \n", cfg.PropagationDelay);
    startSender(role, std::move(sync), periodMs, "TSyn_MSyn_%s");
    auto announce = std::make_unique<PTPMsgAnnounce>(cfg.Domain, *port);
    ZEB_LOG(kAlways, "tdata_m -> idelay: %d\n", kAnnouncePeriodMs);
    role.announce.startOutput(*role.service,
                              {ThreadKind::kAnnounce, std::move(announce), &cv_announce,
                               kAnnouncePeriodMs, "TSyn_MAnn_%s"},
                              ifName);
    startInput(role, "TSyn_MInp_%s");

    role.input.join();
    role.sender.join();
    role.announce.join();
    std::unique_ptr<Role> ended = takeBack();
    usleep(kSettle);
    ended.reset();
    waitForCountedThreads();
}

void SlaveThread(char* ifName) {
    const TSynInstanceConfig& cfg = InterfaceDataManager::getInstance()->block.cfg;
    std::unique_ptr<Role> opened = openRole(__func__, ifName);
    if (opened == nullptr) {
        return;
    }
    setRoleMark('2');
    ZEB_LOG(kAlways, "%s(%d): Starting as slave ... interface=%s\n", __func__, __LINE__, ifName);
    // The result is not wanted: the first reading opens the clock, here rather than in a pump.
    i210helper::e1000_ptp_get_time(ifName);
    Role& role = shareWithPumps(std::move(opened));
    startInput(role, "TSyn_SInp_%s");
    const std::optional<unsigned short> port = portNumber(__func__, ifName);
    if (!port.has_value()) {
        return;  // the input pump goes on with what it has
    }
    auto request = std::make_unique<PTPMsgPathDelayReq>(cfg.Domain, *port);
    ZEB_LOG(kDebug, "PropagationDelay: %d\n", cfg.PropagationDelay);
    if (cfg.PropagationDelay == 0) {
        const int periodMs = wholeMilliseconds(cfg.syncInterval * kSyncsPerPdelay);
        ZEB_LOG(kDebug, "tdata -> idelay: %d\n", periodMs);
        startSender(role, std::move(request), periodMs, "TSyn_SOutp_%s");
    }
    role.sender.join();
    role.input.join();
    takeBack().reset();
    waitForCountedThreads();
}
