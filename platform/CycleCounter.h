#pragma once

/** The processor's time-stamp counter. The only time that the library takes from elsewhere than
 *  clock_gettime. */
unsigned long long cycleCount();

/** Asked in its place where the process has such a function: a simulated machine, whose time the
 *  processor's counter does not know. */
extern "C" __attribute__((weak, visibility("default"))) unsigned long long zebCycleCounter();
