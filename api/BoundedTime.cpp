#include "timebase/BoundedTime.h"

#include <exception>

#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "base/Exports.h"
#include "base/FieldText.h"
#include "timebase/osipc.h"

namespace {

/** Null while no daemon runs, and without a record: exhausted memory must not throw into a host. */
const gPtpTimeDataStruct* runningRecord() {
    InterfaceDataManager* const instance =
        isRunning() ? InterfaceDataManager::getInstance() : nullptr;
    if (instance == nullptr) {
        return nullptr;
    }
    try {
        return OSipc::instance(fieldText(instance->block.cfg.interfaceName).c_str());
    } catch (const std::exception&) {
        return nullptr;
    }
}

}  // namespace

ZEB_ENTRY int ZebEthTSynInterface_GetBoundedTime(TSynBoundedTime* time) {
    const gPtpTimeDataStruct* const shared = time != nullptr ? runningRecord() : nullptr;
    gPtpTimeDataStruct record;
    long long systemNs = 0;
    if (shared == nullptr || !readTogether(shared, record, systemNs)) {
        return -1;
    }
    *time = boundedTimeAt(record, systemNs);
    return 0;
}
