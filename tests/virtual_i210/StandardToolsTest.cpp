#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "tests/support/Sandbox.h"
#include "tests/virtual_i210/Programs.h"
#include "tools/virtual_i210/VirtualI210.h"

// Programs of the distribution, with the virtual cards preloaded.

namespace {

using testing::HasSubstr;

const std::string kPreload =
    std::string("LD_PRELOAD='") + VIRTUAL_I210_PRELOAD + "' ASAN_OPTIONS=detect_leaks=0 ";

class StandardTools : public testing::Test {
protected:
    void SetUp() override {
        sandbox_.addVethPair("tsm0", "tss0");
        setenv("VIRTUAL_I210",
               "state=/dev/shm/cards seed=21; tsm0 phc=0 cable_ns=300;"
               "tss0 phc=1 rate_ppb=37000 offset_ns=1500000000 cable_ns=300",
               1);
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

/** True when ten summaries in a row report a root mean square within boundNs. */
bool settles(const Program& slave, long boundNs) {
    int inRow = 0;
    for (std::string line = readLine(slave); !line.empty() && inRow < 10; line = readLine(slave)) {
        const std::size_t found = line.find("rms ");
        if (found != std::string::npos) {
            const long rootMeanSquare = std::strtol(line.c_str() + found + 4, nullptr, 10);
            inRow = rootMeanSquare <= boundNs ? inRow + 1 : 0;
        }
    }
    return inRow == 10;
}

TEST_F(StandardTools, Ptp4lFollowsAnotherToAFewTensOfNanoseconds) {
    writePtp4lConfig("/dev/shm/master.cfg", "/dev/shm/master.uds");
    writePtp4lConfig("/dev/shm/slave.cfg", "/dev/shm/slave.uds");
    const Background master("env " + kPreload +
                            "ptp4l -q -i tsm0 -f /dev/shm/master.cfg --priority1=10 >/dev/null");
    const Program slave = startProgram(
        "env " + kPreload + "timeout 60 ptp4l -q -m -s -i tss0 -f /dev/shm/slave.cfg 2>&1");
    EXPECT_TRUE(settles(slave, 30));
    const std::uint64_t now = virtual_i210::rawNowNs();
    const auto masterNs = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tsm0", now));
    const auto slaveNs = static_cast<std::int64_t>(*virtual_i210::truePhcNs("tss0", now));
    EXPECT_NEAR(0.0, static_cast<double>(slaveNs - masterNs), 60.0);
    EXPECT_EQ(0u, virtual_i210::counters("tss0").rxFallbacks);
}

}  // namespace
