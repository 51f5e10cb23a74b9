#include "ptp/Port.h"

#include "platform/i210helper.h"

LocalClock readLocalClock(NetworkService<sock>* service) {
    LocalClock local{};
    service->GetLocalSystemCapabilities(local.systemNs, local.phcNs, local.systemOffset,
                                        local.rate);
    return local;
}

void pauseForCrossTimestamp(const char* interfaceName) {
    unsigned long long systemNs = 0;
    unsigned long long phcNs = 0;
    i210helper::e1000_ptp_get_ext_time(interfaceName, &systemNs, &phcNs);
}
