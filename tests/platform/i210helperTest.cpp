#include "platform/i210helper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ptp_clock.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "tests/support/Daemon.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

constexpr long long kSecond = 1000000000;

char cardName[] = "tsm0";

/** A card whose raw socket is set up, with the log kept for the test. */
struct ReadyCard {
    explicit ReadyCard(const std::string& settings = "phc=0") : sandbox("tsm0", settings) {
        EXPECT_GT(EnableI210Timestamping("tsm0"), 0);
    }

    StdoutCapture output;
    CardSandbox sandbox;
};

TEST(PhcDiscovery, GivesTheIndexOfTheInterface) {
    const ReadyCard card("phc=42");
    EXPECT_EQ(42, findPhcIndex(cardName));
}

TEST(PhcDiscovery, FailsBeforeTheSocketIsSetUp) {
    const StdoutCapture output;
    EXPECT_EQ(-1, findPhcIndex(cardName));
    EXPECT_EQ(std::vector<std::string>{"findPTPIndex: ioctl(SIOETHTOOL) failed! ifr.ifr_name:tsm0 "
                                       "Reason:Bad file descriptor"},
              output.texts());
}

TEST(PhcDiscovery, ReportsARefusedRequest) {
    const ReadyCard card;
    virtual_i210::refuseEthtool("tsm0", EPERM);
    EXPECT_EQ(-1, findPhcIndex(cardName));
    EXPECT_EQ(
        "findPTPIndex: ioctl(SIOETHTOOL) failed! ifr.ifr_name:tsm0 Reason:Operation not "
        "permitted",
        card.output.texts().back());
    EXPECT_EQ("ERROR", card.output.lines().back().level);
}

TEST(PhcDiscovery, CutsTheNameToFifteenCharacters) {
    const ReadyCard card;
    char name[] = "a-name-of-twenty-one-";
    EXPECT_EQ(-1, findPhcIndex(name));
    EXPECT_NE(std::string::npos, card.output.texts().back().find("ifr_name:a-name-of-twent Rea"));
}

TEST(PhcReading, IsTheTimeOfTheCard) {
    const ReadyCard card("phc=0 offset_ns=5000000000 rate_ppb=100000");
    const auto before = *virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs());
    const auto read = static_cast<unsigned long long>(i210helper::e1000_ptp_get_time("tsm0"));
    const auto after = *virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs());
    EXPECT_GE(read + 8, before);
    EXPECT_LE(read, after);
}

TEST(PhcReading, KeepsTheOldValueWithoutAPhc) {
    const ReadyCard card;
    const long long last = i210helper::e1000_ptp_get_time("tsm0");
    ASSERT_GT(last, 0);
    virtual_i210::hidePhc("tsm0", true);
    EXPECT_EQ(last, i210helper::e1000_ptp_get_time("tsm0"));
    EXPECT_EQ("Failed to find PTP device index", card.output.texts().back());
}

TEST(PhcReading, IsZeroWhenThereNeverWasOne) {
    const ReadyCard card;
    virtual_i210::hidePhc("tsm0", true);
    EXPECT_EQ(0, i210helper::e1000_ptp_get_time("tsm0"));
    const timespec* const reading = get_ptp_hardware_clock_phc(cardName);
    EXPECT_EQ(0, reading->tv_sec);
    EXPECT_EQ(0, reading->tv_nsec);
}

TEST(PhcReading, HandsOutOneProcessWideCopy) {
    const ReadyCard card;
    KernelSeam kernel;
    kernel.fixPhc(5 * kSecond + 7);
    const timespec* const first = get_ptp_hardware_clock_phc(cardName);
    EXPECT_EQ(first, get_ptp_hardware_clock_phc(cardName));
    EXPECT_EQ(5, first->tv_sec);
    EXPECT_EQ(7, first->tv_nsec);
}

TEST(PhcReading, ADeviceThatDoesNotOpenIsNeverTriedAgain) {
    const ReadyCard card;
    KernelSeam kernel;
    int opened = 0;
    kernel.open = [&](const char* path) -> std::optional<int> {
        if (std::string(path) != "/dev/ptp0") {
            return std::nullopt;
        }
        ++opened;
        return KernelSeam::refuse(EACCES);
    };
    EXPECT_EQ(0, i210helper::e1000_ptp_get_time("tsm0"));
    EXPECT_EQ(0, set_ptp_hardware_clock_phc("tsm0", 0, 1, 1));
    EXPECT_EQ(1, opened);
    EXPECT_EQ(2, card.output.count(">Failed to open PTP clock device\n"));
    for (const auto& line : card.output.lines()) {
        if (line.text == "Failed to open PTP clock device") {
            EXPECT_EQ("ERROR", line.level);
        }
    }
}

TEST(PhcReading, ADescriptorOfZeroIsMovedAway) {
    const ReadyCard card;
    close(0);
    EXPECT_GT(i210helper::e1000_ptp_get_time("tsm0"), 0);
    EXPECT_EQ(-1, fcntl(0, F_GETFD));
    EXPECT_GT(i210helper::e1000_ptp_get_time("tsm0"), 0);
}

TEST(PhcDevice, AThreeDigitIndexOpensItsFirstTwoDigits) {
    const ReadyCard card("phc=123; other phc=12 offset_ns=1000000000000000");
    const long long own =
        static_cast<long long>(*virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs()));
    EXPECT_EQ(123, findPhcIndex(cardName));
    EXPECT_GT(i210helper::e1000_ptp_get_time("tsm0"), own + 999999 * kSecond);
}

TEST(PhcDevice, ASecondInterfaceUsesTheDeviceOfTheFirst) {
    const ReadyCard card("phc=0; tsm0peer phc=1 offset_ns=1000000000000000");
    const long long first = i210helper::e1000_ptp_get_time("tsm0");
    const long long second = i210helper::e1000_ptp_get_time("tsm0peer");
    EXPECT_GE(second, first);
    EXPECT_LT(second, first + 60 * kSecond);
}

TEST(PhcSetting, SetsSecondsAndNanoseconds) {
    const ReadyCard card;
    EXPECT_EQ(1, i210helper::e1000_ptp_set_time("tsm0", 0, 1234567890, 500000000));
    const long long now = i210helper::e1000_ptp_get_time("tsm0");
    EXPECT_GE(now, 1234567890 * kSecond + 500000000);
    EXPECT_LT(now, 1234567890 * kSecond + 30 * kSecond);
}

TEST(PhcSetting, IgnoresTheUpperSeconds) {
    const ReadyCard card;
    KernelSeam kernel;
    std::vector<std::pair<time_t, long>> set;
    kernel.clockSettime = [&](clockid_t, const timespec* time) {
        set.emplace_back(time->tv_sec, time->tv_nsec);
        return 0;
    };
    EXPECT_EQ(1, set_ptp_hardware_clock_phc("tsm0", 0, 100, 5));
    EXPECT_EQ(1, set_ptp_hardware_clock_phc("tsm0", 7, 100, 5));
    ASSERT_EQ(2U, set.size());
    EXPECT_EQ(set[0], set[1]);
    EXPECT_EQ((std::pair<time_t, long>{100, 5}), set[1]);
}

TEST(PhcSetting, PassesSecondsBeyond31BitsAsNegativeOnBothTargets) {
    const ReadyCard card;
    KernelSeam kernel;
    long long seconds = 0;
    kernel.clockSettime = [&](clockid_t, const timespec* time) {
        seconds = time->tv_sec;
        return 0;
    };
    set_ptp_hardware_clock_phc("tsm0", 0, 0xFFFFFFFF, 0);
    EXPECT_EQ(-1, seconds);
}

TEST(PhcSetting, ReportsARefusal) {
    const ReadyCard card;
    KernelSeam kernel;
    kernel.clockSettime = [](clockid_t, const timespec*) { return KernelSeam::refuse(EPERM); };
    EXPECT_EQ(0, set_ptp_hardware_clock_phc("tsm0", 0, 100, 5));
    EXPECT_EQ("clock_settime() failed!", card.output.texts().back());
    EXPECT_EQ("ERROR", card.output.lines().back().level);
}

TEST(PhcSetting, FailsWithoutAPhc) {
    const ReadyCard card;
    virtual_i210::hidePhc("tsm0", true);
    EXPECT_EQ(0, set_ptp_hardware_clock_phc("tsm0", 0, 100, 5));
    EXPECT_EQ("Failed to find PTP device index", card.output.texts().back());
}

TEST(CrossTimestampRequest, TakesTwentyFiveSamplesOfTheOpenClock) {
    const ReadyCard card;
    i210helper::e1000_ptp_get_time("tsm0");
    KernelSeam kernel;
    kernel.ioctl = [](int, unsigned long request, void* argument) -> std::optional<int> {
        EXPECT_EQ(0x43403D05UL, request);
        auto& offset = *static_cast<ptp_sys_offset*>(argument);
        EXPECT_EQ(25U, offset.n_samples);
        for (int i = 0; i < 51; ++i) {
            offset.ts[i].sec = i;
            offset.ts[i].nsec = i == 48 ? 1 : 0;
        }
        return 0;
    };
    unsigned long long systemNs = 0;
    unsigned long long phcNs = 0;
    EXPECT_TRUE(i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs));
    EXPECT_EQ(48 * 1000000000ULL + 1, systemNs);
    EXPECT_EQ(49 * 1000000000ULL, phcNs);
}

TEST(CrossTimestampRequest, GivesZerosWhenTheClockIsNotOpen) {
    unsigned long long systemNs = 1;
    unsigned long long phcNs = 1;
    EXPECT_TRUE(i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs));
    EXPECT_EQ(0ULL, systemNs);
    EXPECT_EQ(0ULL, phcNs);
}

TEST(CrossTimestampRequest, AsksNoOtherDescriptorWhileTheClockIsNotOpen) {
    const ReadyCard card;
    KernelSeam kernel;
    int asked = 0;
    kernel.ioctl = [&](int, unsigned long request, void*) -> std::optional<int> {
        asked += request == PTP_SYS_OFFSET ? 1 : 0;
        return std::nullopt;
    };
    kernel.open = [](const char*) { return KernelSeam::refuse(EACCES); };
    unsigned long long systemNs = 1;
    unsigned long long phcNs = 1;
    i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs);
    i210helper::e1000_ptp_get_time("tsm0");
    EXPECT_TRUE(i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs));
    EXPECT_EQ(0, asked);
    EXPECT_EQ(0ULL, systemNs);
    EXPECT_EQ(0ULL, phcNs);
}

TEST(CrossTimestampRequest, BracketsTheTrueTimeOfTheCard) {
    const ReadyCard card("phc=0 offset_ns=7000000000");
    i210helper::e1000_ptp_get_time("tsm0");
    const auto before = *virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs());
    unsigned long long systemNs = 0;
    unsigned long long phcNs = 0;
    i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs);
    const auto after = *virtual_i210::truePhcNs("tsm0", virtual_i210::rawNowNs());
    EXPECT_GE(phcNs + 8, before);
    EXPECT_LE(phcNs, after);
    EXPECT_NE(0ULL, systemNs);
}

TEST(HardwareHelper, MemberReceiveTimestampDoesNothing) {
    UInterface interface {};
    ptp_ext_time_t time{1, 2};
    EXPECT_TRUE(i210helper::retrieve_RX_timestamp(interface, nullptr, &time));
    EXPECT_EQ(1ULL, time.systemTime);
    EXPECT_EQ(2ULL, time.phcTime);
}

TEST(HardwareHelper, OffsetVariableIsZero) {
    EXPECT_EQ(0, i210TimeOffset);
}

TEST(HardwareHelperDeathTest, UnsupportedOperationsEndTheProcessWithZero) {
    unsigned long long ns = 0;
    ptp_time_t time{};
    ptp_ext_time_t extended{};
    UInterface interface {};
    const testing::ExitedWithCode zero(0);
    EXPECT_EXIT(i210helper::e1000_ptp_set_compensation("tsm0", 5), zero, "");
    EXPECT_EXIT(i210helper::e1000_check_link_state("tsm0"), zero, "");
    EXPECT_EXIT(i210helper::GetExtenxdedTimestampingInformation("tsm0", nullptr, &time, &ns, &ns),
                zero, "");
    EXPECT_EXIT(retrieve_RX_timestamp(interface, nullptr, &extended), zero, "");
}

}  // namespace
