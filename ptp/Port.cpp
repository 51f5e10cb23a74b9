#include "ptp/Port.h"

#include "platform/i210helper.h"
#include "timebase/osipc.h"

Port portOf(NetworkService<sock>* service) {
    char* const name = service != nullptr ? GetInterfaceName(service) : nullptr;
    return {service, name, TimeRecord(name != nullptr ? OSipc::instance(name) : nullptr)};
}

InstanceBlock* instanceBlock() {
    InterfaceDataManager* const instance = InterfaceDataManager::getInstance();
    return instance != nullptr ? &instance->block : nullptr;
}

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
