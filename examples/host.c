/* A time slave on the interface given as argument: prints the synchronised time ten times.
 *     cc -m32 -std=c99 -Iinclude examples/host.c -Lbuild/i386 -lZebEthTimeSynDaemon -o host
 *     LD_LIBRARY_PATH=build/i386 ./host eth1 */
#include <stdio.h>
#include <unistd.h>

#include "ZebEthTimeSynSupportInterface.h"

int main(int argc, char** argv) {
    TSynInstanceConfig config = {.recordSize = sizeof config, .VlanID = -1 /* untagged */};
    config.syncInterval = 125.0;   /* ms */
    config.PropagationDelay = 500; /* ns; 0 has it measured */
    if (argc != 2) {
        return 2;
    }
    snprintf(config.interfaceName, sizeof config.interfaceName, "%s", argv[1]);
    DbgTraceLevel = 0; /* above 2 the first call aborts the process */
    if (ZebEthTSynInterface_Create(&config) != 0) {
        return 1;
    }
    ZebEthTSynInterface_Start(0, NULL, NULL);
    for (int i = 0; i < 10; ++i) {
        unsigned long long seconds = 0;
        unsigned int nanoseconds = 0;
        sleep(1); /* the daemon runs from about two seconds after Start */
        ZebEthTSynInterface_GetCurrentTime(0, &seconds, &nanoseconds, NULL, NULL, NULL, NULL, NULL,
                                           NULL);
        fprintf(stderr, "%llu.%09u\n", seconds, nanoseconds);
    }
    return ZebEthTSynInterface_Destroy();
}
