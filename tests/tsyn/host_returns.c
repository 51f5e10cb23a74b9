/* A master that returns from main while its senders run. Prints "returning" once the first Sync
 * shows in the published record. */
#include <stdio.h>
#include <unistd.h>

#include "include/ZebEthTimeSynSupportInterface.h"

int main(int argc, char** argv) {
    TSynInstanceConfig config = {.recordSize = sizeof config, .role = 1, .VlanID = -1};
    config.syncInterval = 125.0;
    config.TxMode = 1;
    if (argc != 2) {
        return 2;
    }
    snprintf(config.interfaceName, sizeof config.interfaceName, "%s", argv[1]);
    DbgTraceLevel = 0;
    ZebEthTSynInterface_Create(&config);
    ZebEthTSynInterface_Start(0, NULL, NULL);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        unsigned short sequenceId = 0;
        unsigned long long seconds = 0;
        ZebEthTSynInterface_GetCurrentTime(0, &seconds, NULL, &sequenceId, NULL, NULL, NULL, NULL,
                                           NULL);
        if (seconds != ~0ULL && sequenceId != 0) {
            fprintf(stderr, "returning\n");
            return 0;
        }
        usleep(10000);
    }
    return 1;
}
