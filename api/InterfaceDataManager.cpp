#include "api/InterfaceDataManager.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/DbgLog.h"

namespace {

constexpr int kConstructorTraceLine = 44;
constexpr int kRecordSizeTraceLine = 95;

}  // namespace

InterfaceDataManager* InterfaceDataManager::m_pInstance = nullptr;

InterfaceDataManager::InterfaceDataManager() : block{} {
    if (abortsOnTrace()) {
        fatalTraceLine("InterfaceDataManager", kConstructorTraceLine);
    }
}

InterfaceDataManager* InterfaceDataManager::getInstance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new (std::nothrow) InterfaceDataManager;
    }
    return m_pInstance;
}

InterfaceDataManager* InterfaceDataManager::getInstance(const TSynInstanceConfig* cfg) {
    InterfaceDataManager* const instance = getInstance();
    if (instance == nullptr) {
        return nullptr;
    }
    const std::size_t recordSize = cfg->recordSize;
    std::memcpy(static_cast<void*>(&instance->block), cfg,
                std::min(recordSize, sizeof(InstanceBlock)));
    if (recordSize != sizeof(TSynInstanceConfig) && abortsOnTrace()) {
        std::fprintf(stdout, "%s  trace line %d: value s is not supported\n", "getInstance",
                     kRecordSizeTraceLine);
        abandonAfterTraceLine();
    }
    return instance;
}
