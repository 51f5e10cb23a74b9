#include "profile/WireSteps.h"

#include "ptp/ProtocolSteps.h"
#include "wire/ptpwire.h"

namespace {

/** What a message says of its version beyond the major number is no reason to refuse it. */
bool admitsAnyMinorVersion(unsigned char* message, unsigned int length,
                           unsigned long long /*rxNs*/) {
    if (length > wire::kVersion) {
        message[wire::kVersion] &= wire::kVersionMask;
    }
    return true;
}

}  // namespace

void wire_steps::install(const TSynProfile& profile) {
    protocolSteps.admits = profile.anyMinorVersion != 0 ? admitsAnyMinorVersion : admitsEverything;
}
