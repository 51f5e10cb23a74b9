#include "tools/virtual_i210/TrueTime.h"

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/RealFunctions.h"

VIRTUAL_I210_EXPORT int virtual_i210_true_time(const char* interfaceName, uint64_t rawNs,
                                               uint64_t* phcNs) {
    virtual_i210::SharedState* const state = virtual_i210::stateForCall();
    const virtual_i210::CardState* const card =
        state == nullptr ? nullptr : state->findCard(interfaceName);
    if (card == nullptr) {
        return 0;
    }
    *phcNs = static_cast<std::uint64_t>(card->phcNs(rawNs));
    return 1;
}
