#include "tools/tsyn/run/LiveSettings.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "include/ZebEthTimeSynSupportInterface.h"
#include "tools/tsyn/HexText.h"
#include "tools/tsyn/TimeBaseNames.h"
#include "tools/tsyn/TimeText.h"
#include "tools/tsyn/control/SettingRequest.h"
#include "tools/tsyn/daemon/RecordView.h"
#include "tools/tsyn/run/HostTime.h"

namespace tsyn {
namespace {

constexpr long long kNsPerSecond = 1000000000;

/** The card's clock is set with 32 bits of seconds. */
constexpr long long kMostCardNs = 0xFFFFFFFFLL * kNsPerSecond;

/** Every sender tells of a new time at once. */
constexpr unsigned char kNotify = 1;

/** An offset that missed by more is set again. */
constexpr long long kCloseNs = 1000;
constexpr int kAims = 5;
constexpr int kComparisons = 7;

std::optional<long long> cardNs() {
    const std::optional<HostTime> now = masterTime();
    return now ? std::optional(static_cast<long long>(now->totalNs())) : std::nullopt;
}

/** Sets the card's clock; the time that it was set to, nothing when it could not be. */
std::optional<long long> setCard(const SettingRequest& request) {
    long long target = request.timeNs.value_or(0);
    if (request.stepNs) {
        const std::optional<long long> now = cardNs();
        if (!now || __builtin_add_overflow(*now, *request.stepNs, &target)) {
            return {};
        }
    }
    if (target <= 0 || target > kMostCardNs ||
        ZebEthTSynInterface_SetHardTime(0, static_cast<unsigned long long>(target / kNsPerSecond),
                                        static_cast<unsigned int>(target % kNsPerSecond),
                                        kNotify) != 0) {
        return {};
    }
    return target;
}

/** What the card will read by the time that it is read once more. */
std::optional<long long> nextReadingNs() {
    std::array<long long, kComparisons> apart{};
    std::optional<long long> last = cardNs();
    for (long long& each : apart) {
        const std::optional<long long> now = cardNs();
        each = now.value_or(0) - last.value_or(0);
        last = now;
    }
    std::nth_element(apart.begin(), apart.begin() + kComparisons / 2, apart.end());
    return last ? std::optional(*last + apart[kComparisons / 2]) : std::nullopt;
}

std::optional<long long> softOffset(RecordView& record) {
    const std::optional<gPtpTimeDataStruct> read = record.snapshot();
    return read ? std::optional(static_cast<long long>(read->softOffset)) : std::nullopt;
}

/** The interface takes a time and reads the card itself, so that the way there counts: the record
 *  tells what came of it, and whoever was held up on that way tries again. */
bool setSoftOffset(long long offsetNs, RecordView& record) {
    for (int i = 0; i < kAims; ++i) {
        const std::optional<long long> reading = nextReadingNs();
        long long target = 0;
        if (!reading || __builtin_add_overflow(*reading, offsetNs, &target) ||
            ZebEthTSynInterface_SetSoftTime(
                0, static_cast<unsigned long long>(target / kNsPerSecond),
                static_cast<unsigned int>(target % kNsPerSecond), kNotify) != 0) {
            return false;
        }
        const std::optional<long long> made = softOffset(record);
        if (!made || std::llabs(*made - offsetNs) <= kCloseNs) {
            break;
        }
    }
    return true;
}

/** Sets the time beside the card's clock, as setCard. */
std::optional<long long> setBesideCard(const SettingRequest& request,
                                       const std::string& interfaceName) {
    RecordView record;
    record.open(interfaceName);
    const std::optional<long long> now = cardNs();
    const std::optional<long long> before = softOffset(record);
    long long target = request.timeNs.value_or(0);
    if (!now || !before ||
        (request.stepNs && __builtin_add_overflow(*now + *before, *request.stepNs, &target)) ||
        target <= 0 || !setSoftOffset(target - *now, record)) {
        return {};
    }
    return target;
}

/** What a daemon keeps without sending it, since an option is missing. */
std::string keptWithout(const std::string& option) {
    return option.empty() ? "" : " (kept, but not sent without " + option + ")";
}

std::string statusNeeds(const RunOptions& options) {
    return options.autosarExtensions ? "" : "--autosar";
}

std::string userDataNeeds(const RunOptions& options) {
    return !options.autosarExtensions      ? "--autosar"
           : options.userDataSelector == 0 ? "--user-data-tlv"
                                           : "";
}

bool setUserData(const std::string& hex) {
    const std::vector<unsigned char> bytes = hexBytes(hex);
    std::array<unsigned char, 4> data{static_cast<unsigned char>(bytes.size())};
    std::copy(bytes.begin(), bytes.end(), data.begin() + 1);
    return ZebEthTSynInterface_SetUserData(0, data.data()) == 0;
}

}  // namespace

std::string answerSettingRequest(const std::string& text, const RunOptions& options) {
    SettingRequest request;
    const std::string problem = readRequest(text, request);
    if (!problem.empty()) {
        return answerText(false, problem);
    }
    if (!options.isMaster()) {
        return answerText(false,
                          "this daemon is a slave, which follows its master and cannot be set");
    }
    std::string done;
    if (request.userData && setUserData(*request.userData)) {
        done += "user data " + *request.userData + keptWithout(userDataNeeds(options)) + "; ";
    }
    if (request.status) {
        const auto status = static_cast<unsigned char>(timeBaseNames().at(*request.status));
        ZebEthTSynInterface_SetTimeBaseStatus(0, status);
        done += "status " + *request.status + keptWithout(statusNeeds(options)) + "; ";
    }
    if (request.timeNs || request.stepNs) {
        const std::optional<long long> target =
            request.setsCard ? setCard(request) : setBesideCard(request, options.interfaceName);
        if (!target) {
            return answerText(false, done + "the time cannot be set to that");
        }
        done += "time " + utcText(*target) + "; ";
    }
    return answerText(true, done.substr(0, done.size() - std::min<std::size_t>(2, done.size())));
}

}  // namespace tsyn
