#pragma once

#include <new>
#include <utility>

/** Storage of a process-wide object that outlives every thread: constructed with its arguments,
 *  destroyed only by an explicit call. Daemon threads still use such objects while the static
 *  destructors of a host that returned from main run. */
template <typename T>
union Undestroyed {
    Undestroyed() : value() {}
    ~Undestroyed() {}

    Undestroyed(const Undestroyed&) = delete;
    Undestroyed& operator=(const Undestroyed&) = delete;

    T value;
};

/** As Undestroyed, for a type whose all-zero bytes are its initialised state: usable before any
 *  constructor of the process ran. */
template <typename T>
union ZeroInitialised {
    constexpr ZeroInitialised() : bytes{} {}
    ~ZeroInitialised() {}

    ZeroInitialised(const ZeroInitialised&) = delete;
    ZeroInitialised& operator=(const ZeroInitialised&) = delete;

    unsigned char bytes[sizeof(T)];
    T value;
};
