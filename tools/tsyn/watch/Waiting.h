#pragma once

#include <csignal>

namespace tsyn {

/** Waits for moments, keys and the end of the program that SIGINT or SIGTERM asks for. */
class Waiting {
public:
    /** Takes both signals from now on; a reader that leaves no longer ends the program. */
    Waiting();

    /** Waits until that moment of monotonicNowS(), or shorter: until a key is there, the terminal
     *  has another size, or the end is asked for. */
    void until(double momentS, bool withKeys);

    static bool isEndAsked();

    /** The terminal that keys came from has gone. */
    bool hasHungUp() const { return hasHungUp_; }

private:
    sigset_t maskWhileWaiting_{};
    bool hasHungUp_ = false;
};

}  // namespace tsyn
