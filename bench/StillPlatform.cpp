#include "StillPlatform.h"

#include <cstring>

#include "platform/NetworkService.h"

unsigned long long stillTxTime = 1000000000000;

template <typename Backend>
NetworkService<Backend>::NetworkService(char const* wantedName)
    : mac_{0x00, 0x1B, 0x21, 0xAA, 0xBB, 0xCC}, domain_(0), vlan_{-1, 0}, interface_{} {
    std::strncpy(interface_.name, wantedName, sizeof interface_.name - 1);
}

template <typename Backend>
NetworkService<Backend>::~NetworkService() noexcept = default;

template <typename Backend>
const char* NetworkService<Backend>::what() const noexcept {
    return "still";
}

template <typename Backend>
int NetworkService<Backend>::transmit(unsigned char const* /*payload*/, int /*length*/,
                                      ptp_time_t* txTime) {
    *txTime = toPtpTime(stillTxTime);
    return 0;
}

template <typename Backend>
bool NetworkService<Backend>::GetLocalSystemCapabilities(long long& systemTime, long long& phcTime,
                                                         long long& offset,
                                                         long double& rateRatio) {
    systemTime = 2;
    phcTime = 1;
    offset = 1;
    rateRatio = 1;
    return true;
}

template class NetworkService<sock>;

char* GetInterfaceName(NetworkService<sock>* service) {
    return service->interface_.name;
}

unsigned char* BuildPTPClockIdentityFromMacAdress(NetworkService<sock>* /*service*/) {
    static unsigned char identity[] = {0x00, 0x1B, 0x21, 0xFF, 0xFE, 0xAA, 0xBB, 0xCC};
    return identity;
}

long long i210helper::e1000_ptp_get_time(char const* /*interfaceName*/) {
    return 1;
}

bool i210helper::e1000_ptp_get_ext_time(char const* /*interfaceName*/,
                                        unsigned long long* systemTime,
                                        unsigned long long* phcTime) {
    *systemTime = 2;
    *phcTime = 1;
    return true;
}
