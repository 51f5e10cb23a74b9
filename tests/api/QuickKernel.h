#pragma once

#include <pthread.h>

#include <string>

#include "tests/support/KernelSeam.h"

/** Name of the calling thread. */
inline std::string ownThreadName() {
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

/** A kernel whose sleeps of a tenth of a second and more, those of start and end, take no time. */
struct QuickKernel : KernelSeam {
    static constexpr useconds_t kLong = 100000;

    QuickKernel() {
        usleep = [](useconds_t microseconds) {
            return microseconds >= kLong ? std::optional<int>(0) : std::nullopt;
        };
    }
};
