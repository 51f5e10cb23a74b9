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

ZEB_ENTRY int ZebEthTSynInterface_SetProfile(const TSynProfile* given) {
    if (given == nullptr) {
        ZEB_LOG(kError, "No profile: nothing changed\n");
        return -1;
    }
    if (daemon_threads::wasStarted()) {
        ZEB_LOG(kError, "Profile refused: the threads have started, set it before Start\n");
        return -1;
    }
    if (const char* const mistake = profile::mistakeIn(*given)) {
        ZEB_LOG(kError, "Profile refused: %s has a value that this library does not know\n",
                mistake);
        return -1;
    }
    profile::apply(*given);
    return 0;
}
