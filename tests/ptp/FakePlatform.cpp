#include "tests/ptp/FakePlatform.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

namespace {

/** Takes the next prepared answer; a missing one fails the test and reads as zero. */
template <typename Answer>
Answer next(std::deque<Answer>& answers, const char* call) {
    if (answers.empty()) {
        if (!platform().answersEverything) {
            ADD_FAILURE() << "unexpected call of " << call;
        }
        return Answer{};
    }
    Answer answer = answers.front();
    answers.pop_front();
    return answer;
}

void tellOf(PlatformCall call) {
    if (platform().onCall) {
        platform().onCall(call);
    }
}

}  // namespace

bool FakePlatform::isUsedUp() const {
    return txTimes.empty() && phcTimes.empty() && extTimes.empty() && capabilities.empty() &&
           sleeps.empty();
}

FakePlatform& platform() {
    static FakePlatform instance;
    return instance;
}

template <typename Backend>
NetworkService<Backend>::NetworkService(char const* wantedName)
    : mac_{0x00, 0x1B, 0x21, 0xAA, 0xBB, 0xCC}, domain_(0), vlan_{-1, 0}, interface_{} {
    std::strncpy(interface_.name, wantedName, sizeof interface_.name - 1);
}

template <typename Backend>
NetworkService<Backend>::~NetworkService() noexcept = default;

template <typename Backend>
const char* NetworkService<Backend>::what() const noexcept {
    return "fake";
}

template <typename Backend>
int NetworkService<Backend>::transmit(unsigned char const* payload, int length,
                                      ptp_time_t* txTime) {
    tellOf(PlatformCall::kTransmit);
    platform().sent.emplace_back(payload, payload + length);
    *txTime = toPtpTime(next(platform().txTimes, "transmit"));
    return 0;
}

template <typename Backend>
bool NetworkService<Backend>::GetLocalSystemCapabilities(long long& systemTime, long long& phcTime,
                                                         long long& offset,
                                                         long double& rateRatio) {
    tellOf(PlatformCall::kCapabilities);
    const LocalCapabilities answer = next(platform().capabilities, "GetLocalSystemCapabilities");
    systemTime = answer.systemTime;
    phcTime = answer.phcTime;
    offset = answer.offset;
    rateRatio = answer.ratio;
    return true;
}

template class NetworkService<sock>;

char* GetInterfaceName(NetworkService<sock>* service) {
    if (service == nullptr) {
        ADD_FAILURE() << "the name of no service";
        return nullptr;
    }
    return platform().isNameless ? nullptr : service->interface_.name;
}

unsigned char* BuildPTPClockIdentityFromMacAdress(NetworkService<sock>* service) {
    EXPECT_NE(nullptr, service);
    return platform().clockIdentity.data();
}

long long i210helper::e1000_ptp_get_time(char const* interfaceName) {
    EXPECT_STREQ(kInterface, interfaceName);
    tellOf(PlatformCall::kPhcTime);
    return next(platform().phcTimes, "e1000_ptp_get_time");
}

bool i210helper::e1000_ptp_get_ext_time(char const* interfaceName, unsigned long long* systemTime,
                                        unsigned long long* phcTime) {
    EXPECT_STREQ(kInterface, interfaceName);
    tellOf(PlatformCall::kExtTime);
    const ptp_ext_time_t answer = next(platform().extTimes, "e1000_ptp_get_ext_time");
    *systemTime = answer.systemTime;
    *phcTime = answer.phcTime;
    return true;
}

/** Takes the place of the C library's: what a handler waits for happens at once. */
extern "C" int usleep(useconds_t microseconds) {
    platform().lastSleep = microseconds;
    const std::function<void()> meanwhile = next(platform().sleeps, "usleep");
    if (meanwhile) {
        meanwhile();
    }
    return 0;
}

/** Takes the place of the C library's: a clock that a case sets stands still. */
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto given = platform().clocks.find(clock);
    if (given != platform().clocks.end()) {
        *time = given->second;
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}
