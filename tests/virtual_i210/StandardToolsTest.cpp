#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

#include "tests/support/Sandbox.h"
#include "tests/virtual_i210/Programs.h"
#include "tools/virtual_i210/Clock.h"
#include "tools/virtual_i210/Simulation.h"
#include "tools/virtual_i210/VirtualI210.h"

// Programs of the distribution, with the virtual cards preloaded.

namespace {

using testing::HasSubstr;
using virtual_i210::Simulation;

const std::string kSettings =
    "state=/dev/shm/cards seed=21; tsm0 phc=0 cable_ns=300;"
    "tss0 phc=1 rate_ppb=37000 offset_ns=1500000000 cable_ns=300";

const std::string kPreload =
    std::string("LD_PRELOAD='") + VIRTUAL_I210_PRELOAD + "' ASAN_OPTIONS=detect_leaks=0 ";

class StandardTools : public testing::Test {
protected:
    void SetUp() override {
        sandbox_.addVethPair("tsm0", "tss0");
        setenv("VIRTUAL_I210", kSettings.c_str(), 1);
    }

    Sandbox sandbox_;
};

TEST_F(StandardTools, EthtoolShowsACardThatStamps) {
    const std::string output = outputOf(kPreload + "ethtool -T tss0");
    EXPECT_THAT(output, HasSubstr("hardware-transmit"));
    EXPECT_THAT(output, HasSubstr("hardware-raw-clock"));
    EXPECT_THAT(output, HasSubstr("PTP Hardware Clock: 1"));
    EXPECT_THAT(output, HasSubstr("ptpv2-event"));
    EXPECT_THAT(outputOf(kPreload + "ethtool -i tss0"), HasSubstr("driver: igb"));
}

TEST_F(StandardTools, EthtoolShowsOtherInterfacesAsTheyAre) {
    EXPECT_THAT(outputOf(kPreload + "ethtool -T lo"), HasSubstr("PTP Hardware Clock: none"));
}

TEST_F(StandardTools, PhcCtlSetsTunesAndStepsAClock) {
    const std::string output =
        outputOf(kPreload + "phc_ctl -q tss0 -- set 1000.5 freq 50000 freq adj -3 get caps cmp");
    EXPECT_THAT(output, HasSubstr("set clock time to 1000.500000000"));
    EXPECT_THAT(output, HasSubstr("clock frequency offset is 50000.000000ppb"));
    EXPECT_THAT(output, HasSubstr("clock time is 997.5"));
    EXPECT_THAT(output, HasSubstr("62499999 maximum frequency adjustment"));
    const auto now = virtual_i210::truePhcNs("tss0", virtual_i210::rawNowNs());
    EXPECT_EQ(99u, *now / 10'000'000'000u);
}

TEST_F(StandardTools, PhcCtlTakesTheDeviceToo) {
    const std::string output = outputOf(kPreload + "phc_ctl -q /dev/ptp0 get");
    EXPECT_THAT(output, HasSubstr("clock time is "));
}

void writePtp4lConfig(const std::string& path, const std::string& uds) {
    std::ofstream(path) << "[global]\nnetwork_transport L2\ndelay_mechanism P2P\n"
                           "time_stamping hardware\ntransportSpecific 0x1\n"
                           "ptp_dst_mac 01:80:C2:00:00:0E\np2p_dst_mac 01:80:C2:00:00:0E\n"
                           "logAnnounceInterval -2\nlogSyncInterval -4\n"
                           "logMinPdelayReqInterval -4\nsummary_interval -2\n"
                           "step_threshold 0.00002\ntx_timestamp_timeout 50\n"
                           "uds_address "
                        << uds << "\n";
}

/** ptp4l in simulated time, until the end of the test. */
class Ptp4l {
public:
    Ptp4l(Simulation& simulation, const std::string& options, const std::string& log)
        : simulation_(simulation), pid_(simulation.start([&] {
              const int file = open(log.c_str(), O_WRONLY | O_CREAT, 0644);
              dup2(file, STDOUT_FILENO);
              dup2(file, STDERR_FILENO);
              const std::string command = "exec env " + kPreload + "ptp4l " + options;
              execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
          })) {}
    ~Ptp4l() {
        simulation_.signal(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Ptp4l(const Ptp4l&) = delete;
    Ptp4l& operator=(const Ptp4l&) = delete;

private:
    Simulation& simulation_;
    pid_t pid_;
};

/** How many summaries in a row, up to the last one, report a root mean square within boundNs. */
int settledFor(const std::string& log, long boundNs) {
    int inRow = 0;
    std::ifstream file(log);
    for (std::string line; std::getline(file, line);) {
        const std::size_t found = line.find("rms ");
        if (found != std::string::npos) {
            const long rootMeanSquare = std::strtol(line.c_str() + found + 4, nullptr, 10);
            inRow = rootMeanSquare <= boundNs ? inRow + 1 : 0;
        }
    }
    return inRow;
}

TEST_F(StandardTools, Ptp4lFollowsAnotherToAFewTensOfNanoseconds) {
    writePtp4lConfig("/dev/shm/master.cfg", "/dev/shm/master.uds");
    writePtp4lConfig("/dev/shm/slave.cfg", "/dev/shm/slave.uds");
    setenv("VIRTUAL_I210", ("clock=simulated " + kSettings).c_str(), 1);
    Simulation simulation(std::getenv("VIRTUAL_I210"));
    const Ptp4l master(simulation, "-q -i tsm0 -f /dev/shm/master.cfg --priority1=10",
                       "/dev/shm/master.log");
    const Ptp4l slave(simulation, "-q -m -s -i tss0 -f /dev/shm/slave.cfg", "/dev/shm/slave.log");
    constexpr std::uint64_t kSecond = 1'000'000'000;
    while (settledFor("/dev/shm/slave.log", 30) < 10 && simulation.nowNs() < 60 * kSecond) {
        simulation.sleepUntil(simulation.nowNs() + kSecond / 4);
    }
    EXPECT_LE(10, settledFor("/dev/shm/slave.log", 30));
    const std::uint64_t now = virtual_i210::rawNowNs();
    const auto masterNs = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tsm0", now));
    const auto slaveNs = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tss0", now));
    EXPECT_NEAR(0.0, static_cast<double>(slaveNs - masterNs), 60.0);
    EXPECT_EQ(0u, virtual_i210::counters("tss0").rxFallbacks);
}

}  // namespace
