#pragma once

/** The processor's time-stamp counter. The only time that the library takes from elsewhere than
 *  clock_gettime. */
unsigned long long cycleCount();
