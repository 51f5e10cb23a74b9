#include "tools/tsyn/run/LiveSettings.h"

#include <algorithm>
#include <array>

#include "include/ZebEthTimeSynSupportInterface.h"
#include "tools/tsyn/HexText.h"
#include "tools/tsyn/TimeBaseNames.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/control/SettingRequest.h"
#include "tools/tsyn/run/HostTime.h"
#include "tools/tsyn/run/RunOptions.h"

namespace tsyn {
namespace {

constexpr long long kNsPerSecond = 1000000000;

/** The card's clock is set with 32 bits of seconds. */
constexpr long long kMostCardNs = 0xFFFFFFFFLL * kNsPerSecond;

/** The time that is to be; nothing when no valid one comes out. */
std::optional<long long> targetOf(const SettingRequest& request) {
    long long target = request.timeNs.value_or(0);
    if (request.stepNs) {
        const std::optional<HostTime> now = request.setsCard ? masterTime() : currentTime();
        if (!now || __builtin_add_overflow(static_cast<long long>(now->totalNs()), *request.stepNs,
                                           &target)) {
            return {};
        }
    }
    const bool isValid = target > 0 && (!request.setsCard || target <= kMostCardNs);
    return isValid ? std::optional<long long>(target) : std::nullopt;
}

bool setTime(long long targetNs, bool card) {
    const auto seconds = static_cast<unsigned long long>(targetNs / kNsPerSecond);
    const auto nanoseconds = static_cast<unsigned int>(targetNs % kNsPerSecond);
    // Every sender tells of it at once.
    constexpr unsigned char kNotify = 1;
    return (card ? ZebEthTSynInterface_SetHardTime(0, seconds, nanoseconds, kNotify)
                 : ZebEthTSynInterface_SetSoftTime(0, seconds, nanoseconds, kNotify)) == 0;
}

bool setUserData(const std::string& hex) {
    const std::vector<unsigned char> bytes = hexBytes(hex);
    std::array<unsigned char, 4> data{static_cast<unsigned char>(bytes.size())};
    std::copy(bytes.begin(), bytes.end(), data.begin() + 1);
    return ZebEthTSynInterface_SetUserData(0, data.data()) == 0;
}

}  // namespace

std::string answerSettingRequest(const std::string& text, bool isMaster) {
    SettingRequest request;
    const std::string problem = readRequest(text, request);
    if (!problem.empty()) {
        return answerText(false, problem);
    }
    if (!isMaster) {
        return answerText(false,
                          "this daemon is a slave, which follows its master and cannot be set");
    }
    std::string done;
    if (request.userData && setUserData(*request.userData)) {
        done += "user data " + *request.userData + "; ";
    }
    if (request.status) {
        const auto status = static_cast<unsigned char>(timeBaseNames().at(*request.status));
        ZebEthTSynInterface_SetTimeBaseStatus(0, status);
        done += "status " + *request.status + "; ";
    }
    if (request.timeNs || request.stepNs) {
        const std::optional<long long> target = targetOf(request);
        if (!target || !setTime(*target, request.setsCard)) {
            return answerText(false, done + "the time cannot be set to that");
        }
        done += "time " + utcText(*target) + "; ";
    }
    return answerText(true, done.substr(0, done.size() - std::min<std::size_t>(2, done.size())));
}

}  // namespace tsyn
