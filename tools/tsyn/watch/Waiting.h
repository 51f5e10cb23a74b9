#pragma once

#include <poll.h>

#include <csignal>
#include <vector>

namespace tsyn {

/** Waits for moments, keys and the end of the program that SIGINT or SIGTERM asks for. */
class Waiting {
public:
    /** Takes both signals from now on; a reader that leaves no longer ends the program. */
    Waiting();

    /** Waits until that moment of monotonicNowS(), or shorter: until a key is there, the terminal
     *  has another size, or the end is asked for. */
    void until(double momentS, bool withKeys);

    /** Until that moment, or until one of these is ready, or the end is asked for. */
    void until(double momentS, std::vector<pollfd>& descriptors);

    static bool isEndAsked();

    /** The terminal that keys came from has gone. */
    bool hasHungUp() const { return hasHungUp_; }

private:
    int wait(double momentS, pollfd* descriptors, std::size_t count) const;

    sigset_t maskWhileWaiting_{};
    bool hasHungUp_ = false;
};

}  // namespace tsyn
