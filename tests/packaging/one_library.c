/* Ends with 0 when the library of this program is the one that the given name loads. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>

#include "ZebEthTimeSynSupportInterface.h"

int main(void) {
    void* const named = dlopen("libZebEthTimeSynDaemon.so", RTLD_NOW);
    DbgTraceLevel = 0;
    if (named == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    return dlsym(named, "ZebEthTSynInterface_Stop") ==
                   dlsym(RTLD_DEFAULT, "ZebEthTSynInterface_Stop")
               ? 0
               : 2;
}
