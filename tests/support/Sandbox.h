#pragma once

#include <string>
#include <vector>

/** A network and /dev/shm of the process's own, gone when its last process ends. Where the caller
 *  is not root, a user namespace makes it root inside. Construct before any thread is started. */
class Sandbox {
public:
    /** Throws std::runtime_error when the kernel refuses. */
    Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /** Joins two new interfaces, up and without IPv6, so that no frames but the test's run on
     *  them. Addresses are 02-00-00-00-00-nn, counted up from 01 in the order of creation. */
    void addVethPair(const std::string& first, const std::string& second);

    /** Runs a program with these arguments and throws unless it succeeds. */
    static void run(const std::vector<std::string>& command);

private:
    int interfaceCount_ = 0;
};
