#pragma once

/* How the process ends while daemon threads run. A host may return from main without Destroy: its
 * static destructors then run beside pumps that still wait on condition variables and look into
 * maps and strings. Destroying a condition variable waits for its waiters, which never leave, and
 * the rest would be pulled away under the pumps. So the shared objects below are destroyed at exit
 * only in a process whose daemon never ran. */

/** Called by every daemon thread when it starts. */
void noteDaemonThread();

/** True once a daemon thread has run in this process. */
bool daemonThreadsRan();

/** Storage of a shared object that outlives every daemon thread; otherwise destroyed at exit, in
 *  the reverse of the order of definition. */
template <typename T>
union Undestroyed {
    Undestroyed() : value() {}
    ~Undestroyed() {
        if (!daemonThreadsRan()) {
            value.~T();
        }
    }

    Undestroyed(const Undestroyed&) = delete;
    Undestroyed& operator=(const Undestroyed&) = delete;

    T value;
};

/** As Undestroyed, for a type whose all-zero bytes are its initialised state: usable before any
 *  constructor of the process ran. */
template <typename T>
union ZeroInitialised {
    constexpr ZeroInitialised() : bytes{} {}
    ~ZeroInitialised() {
        if (!daemonThreadsRan()) {
            value.~T();
        }
    }

    ZeroInitialised(const ZeroInitialised&) = delete;
    ZeroInitialised& operator=(const ZeroInitialised&) = delete;

    unsigned char bytes[sizeof(T)];
    T value;
};
