#include "api/RoleSteps.h"

#include <net/if.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/DbgLog.h"
#include "base/ptptime.h"
#include "platform/i210helper.h"
#include "ptp/ProtocolSteps.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

}  // namespace

void setRoleMark(char mark) {
    __atomic_store_n(&MasterOrSlave, mark, __ATOMIC_RELAXED);
}

std::optional<unsigned short> portNumber(const char* function, const char* ifName) {
    const unsigned int index = if_nametoindex(ifName);
    if (index == 0) {
        ZEB_LOG_AS(function, kError, "Error occured due to %s\n", strerror(errno));
        return std::nullopt;
    }
    const unsigned short port = protocolSteps.portNumber(index);
    ZEB_LOG_AS(function, kDebug, "Port index: %d\n", static_cast<int>(port));
    return port;
}

int wholeMilliseconds(double milliseconds) {
    constexpr int kLongest = 2147483647;
    constexpr double kShortest = -2147483648.0;
    if (!(milliseconds > kShortest - 1 && milliseconds < kLongest + 1.0)) {
        return kLongest;
    }
    return static_cast<int>(milliseconds);
}

void setHardwareClockToSystemTime(const char* function, const char* ifName) {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return;
    }
    const auto seconds = protocolSteps.clockSeconds(static_cast<unsigned int>(now.tv_sec));
    const auto nanoseconds = static_cast<unsigned int>(now.tv_nsec);
    ZEB_LOG_AS(function, kAlways, "system time is: %d.%09u \n", static_cast<int>(seconds),
               nanoseconds);
    if (i210helper::e1000_ptp_set_time(ifName, 0, seconds, nanoseconds) != 0) {
        ZEB_LOG_AS(function, kAlways, "time is set to: %lld\n",
                   i210helper::e1000_ptp_get_time(ifName));
    }
}
