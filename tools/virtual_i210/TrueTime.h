#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The exact clock time of a card at an instant of CLOCK_MONOTONIC_RAW, without granularity or
 *  jitter. Returns 1, or 0 when the interface is no card.
 *
 *  Exported by libvirtual_i210.so for programs that are not linked with the card: they look the
 *  name up with dlsym(RTLD_DEFAULT, ...) and find it where the library is preloaded. */
int virtual_i210_true_time(const char* interfaceName, uint64_t rawNs, uint64_t* phcNs);

#ifdef __cplusplus
}
#endif
