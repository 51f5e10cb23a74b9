#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "include/ZebEthTimeSynSupportInterface.h"
#include "tests/support/PeerSocket.h"
#include "tests/support/Sandbox.h"
#include "tests/support/StdoutCapture.h"

/** Configurations that are valid: untagged, domain 0, 125 ms, no AUTOSAR extensions. */
TSynInstanceConfig masterConfig(const std::string& interfaceName = "tsm0");
TSynInstanceConfig slaveConfig(const std::string& interfaceName = "tsm0");

/** Checks again and again, after each step, until a condition holds; false when patience ends. */
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds patience = std::chrono::seconds(20),
                std::chrono::milliseconds step = std::chrono::milliseconds(1));

/** Waits for text that is printed without a flush, which no file event tells of. */
bool awaitPrinted(const StdoutCapture& output, const std::string& part, int times = 1);

/** Names of this process's threads that begin with "TSyn_", sorted. */
std::vector<std::string> daemonThreads();

/** Network and shared memory of the test's own, in simulated time; for programs that link the
 *  virtual card. */
class TimeSandbox {
public:
    TimeSandbox();

private:
    Sandbox sandbox_;
};

/** The same with a virtual card on one end of a cable. */
class CardSandbox {
public:
    /** Settings of the card, such as "phc=0 rate_ppb=100", and further cards behind ';'. */
    explicit CardSandbox(const std::string& cardName = "tsm0",
                         const std::string& settings = "phc=0");

    const std::string card;
    const std::string peerName;

private:
    Sandbox sandbox_;
};

/** A started daemon that is destroyed with its threads at the end of the test. */
class RunningDaemon {
public:
    /** Creates, starts and waits until so many threads run. */
    RunningDaemon(const TSynInstanceConfig& config, std::size_t threads);
    ~RunningDaemon();
    RunningDaemon(const RunningDaemon&) = delete;
    RunningDaemon& operator=(const RunningDaemon&) = delete;

    static constexpr std::size_t kMasterThreads = 4;
    static constexpr std::size_t kSlaveThreads = 3;
};
