#include "api/DaemonThreads.h"
#include "api/InterfaceDataManager.h"
#include "base/DbgLog.h"
#include "include/ZebEthTimeSynProfile.h"
#include "profile/Profile.h"

namespace {

constexpr const char* kLogSource = log_source::kControl;

}  // namespace

ZEB_ENTRY int ZebEthTSynInterface_GetProfilePreset(unsigned int preset, TSynProfile* profile) {
    return profile != nullptr && profile::preset(preset, *profile) ? 0 : -1;
}

ZEB_ENTRY int ZebEthTSynInterface_SetProfileSwitch(TSynProfile* profile, const char* name,
                                                   int value) {
    const bool set =
        profile != nullptr && name != nullptr && profile::setSwitch(*profile, name, value);
    return set ? 0 : -1;
}

ZEB_ENTRY int ZebEthTSynInterface_GetProfileSwitch(unsigned int number, const char** name,
                                                   int* highest) {
    int found = 0;
    const char* const switchName = profile::switchOf(number, found);
    if (switchName == nullptr || name == nullptr || highest == nullptr) {
        return -1;
    }
    *name = switchName;
    *highest = found;
    return 0;
}

ZEB_ENTRY int ZebEthTSynInterface_SetProfile(const TSynProfile* given) {
    if (given == nullptr) {
        ZEB_LOG_REFUSAL("No profile: nothing changed\n");
        return -1;
    }
    if (daemon_threads::wasStarted()) {
        ZEB_LOG_REFUSAL("Profile refused: the threads have started, set it before Start\n");
        return -1;
    }
    const profile::Mistake mistake = profile::mistakeIn(*given);
    if (mistake.needed != nullptr) {
        ZEB_LOG_REFUSAL("Profile refused: %s does nothing without %s, set that one as well\n",
                        mistake.name, mistake.needed);
        return -1;
    }
    if (mistake.name != nullptr) {
        ZEB_LOG_REFUSAL("Profile refused: %s has a value that this library does not know\n",
                        mistake.name);
        return -1;
    }
    profile::apply(*given);
    return 0;
}
