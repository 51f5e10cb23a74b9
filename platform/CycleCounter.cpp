#include "platform/CycleCounter.h"

#include <x86intrin.h>

unsigned long long cycleCount() {
    return zebCycleCounter != nullptr ? zebCycleCounter() : __rdtsc();
}
