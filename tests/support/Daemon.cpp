#include "tests/support/Daemon.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

namespace {

TSynInstanceConfig validConfig(const std::string& interfaceName, unsigned char role) {
    TSynInstanceConfig config{};
    config.recordSize = sizeof config;
    std::strncpy(config.ethStackIdent, "stack0", sizeof config.ethStackIdent - 1);
    std::strncpy(config.interfaceName, interfaceName.c_str(), sizeof config.interfaceName - 1);
    config.role = role;
    config.VlanID = -1;
    config.syncInterval = 125.0;
    config.TxMode = 1;
    config.TxCrcMode = 1;
    return config;
}

void setSettings(const std::string& cards) {
    setenv("VIRTUAL_I210", ("clock=simulated; state=/dev/shm/cards seed=1; " + cards).c_str(), 1);
}

}  // namespace

#ifdef __SANITIZE_ADDRESS__
/** A cancelled thread leaves the marks of its frames behind on its stack, where AddressSanitizer's
 *  own query of the signal stack then reports itself. */
extern "C" const char* __asan_default_suppressions() {
    return "interceptor_name:sigaltstack\n";
}
#endif

TSynInstanceConfig masterConfig(const std::string& interfaceName) {
    return validConfig(interfaceName, 1);
}

TSynInstanceConfig slaveConfig(const std::string& interfaceName) {
    return validConfig(interfaceName, 0);
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds patience,
                std::chrono::milliseconds step) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(step);
    }
    return true;
}

bool awaitPrinted(const StdoutCapture& output, const std::string& part, int times) {
    return eventually([&] { return output.count(part) >= times; });
}

std::vector<std::string> daemonThreads() {
    std::vector<std::string> names;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        std::ifstream file(std::string("/proc/self/task/") + task->d_name + "/comm");
        std::string name;
        if (std::getline(file, name) && name.rfind("TSyn_", 0) == 0) {
            names.push_back(name);
        }
    }
    closedir(tasks);
    std::sort(names.begin(), names.end());
    return names;
}

TimeSandbox::TimeSandbox() {
    setSettings("nocard");
    // Time is simulated from the first question for a card on.
    close(open("/dev/ptp0", O_RDONLY));
}

CardSandbox::CardSandbox(const std::string& cardName, const std::string& settings)
    : card(cardName), peerName(cardName.substr(0, 11) + "peer") {
    setSettings(cardName + " " + settings);
    sandbox_.addVethPair(card, peerName);
}

RunningDaemon::RunningDaemon(const TSynInstanceConfig& config, std::size_t threads) {
    DbgTraceLevel = std::min(DbgTraceLevel, 0);
    ZebEthTSynInterface_Create(&config);
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    // The list of threads is many files; in simulated time, looking at them is all that costs.
    EXPECT_TRUE(eventually([=] { return daemonThreads().size() == threads; },
                           std::chrono::seconds(20), std::chrono::milliseconds(20)));
}

RunningDaemon::~RunningDaemon() {
    ZebEthTSynInterface_Destroy();
    // Cancelled while another pump waits for its mutex, a pump can leave that one waiting for ever.
    eventually([] { return daemonThreads().empty(); }, std::chrono::seconds(2));
}
