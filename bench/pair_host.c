/* A host that only waits: runs the daemon and sleeps until a signal ends it.
 *     pair_host IF master|slave deployed|standard */
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "ZebEthTimeSynProfile.h"
#include "ZebEthTimeSynSupportInterface.h"

int main(int argc, char** argv) {
    TSynInstanceConfig config = {.recordSize = sizeof config, .VlanID = -1, .syncInterval = 125.0};
    TSynProfile profile;
    if (argc != 4) {
        return 2;
    }
    snprintf(config.interfaceName, sizeof config.interfaceName, "%s", argv[1]);
    config.role = strcmp(argv[2], "master") == 0;
    config.TxMode = 1;
    DbgTraceLevel = 0;
    if (ZebEthTSynInterface_Create(&config) != 0) {
        return 1;
    }
    if (strcmp(argv[3], "standard") == 0 &&
        (ZebEthTSynInterface_GetProfilePreset(TSYN_PRESET_STANDARD, &profile) != 0 ||
         ZebEthTSynInterface_SetProfile(&profile) != 0)) {
        return 1;
    }
    ZebEthTSynInterface_Start(0, NULL, NULL);
    pause();
    return 0;
}
