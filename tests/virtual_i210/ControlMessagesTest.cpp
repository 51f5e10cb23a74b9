#include "tools/virtual_i210/ControlMessages.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace {

using virtual_i210::ControlWriter;
using virtual_i210::StampReport;

constexpr int kTimestamping = 37;

// Control messages as a kernel gives them: one software timestamp, one of another kind.
class ControlMessages : public testing::Test {
protected:
    ControlMessages() {
        const timespec stamps[3] = {{100, 5}, {0, 0}, {0, 0}};
        ControlWriter writer(given_.data(), given_.size());
        writer.put(SOL_SOCKET, kTimestamping, stamps, sizeof stamps);
        writer.put(263, 8, "auxdata", 8);
        received_.msg_control = given_.data();
        received_.msg_controllen = writer.used();
        target_.msg_control = taken_.data();
        target_.msg_controllen = taken_.size();
    }

    alignas(cmsghdr) std::array<unsigned char, 256> given_{};
    alignas(cmsghdr) std::array<unsigned char, 256> taken_{};
    msghdr received_{};
    msghdr target_{};
};

TEST_F(ControlMessages, FindTheSoftwareTimestamp) {
    EXPECT_EQ(virtual_i210::softwareStampNs(received_), 100'000'000'005);
}

TEST_F(ControlMessages, CarryTheHardwareTimestampThird) {
    StampReport report;
    report.hardwareNs = 7'000'000'009;
    EXPECT_EQ(virtual_i210::deliverControl(received_, report, target_), 0);
    const cmsghdr* first = CMSG_FIRSTHDR(&target_);
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(first->cmsg_type, kTimestamping);
    ASSERT_EQ(first->cmsg_len, CMSG_LEN(3 * sizeof(timespec)));
    timespec stamps[3];
    std::memcpy(stamps, CMSG_DATA(first), sizeof stamps);
    EXPECT_EQ(stamps[0].tv_sec, 0);
    EXPECT_EQ(stamps[0].tv_nsec, 0);
    EXPECT_EQ(stamps[2].tv_sec, 7);
    EXPECT_EQ(stamps[2].tv_nsec, 9);
}

TEST_F(ControlMessages, DropAnUnwantedTimestampAndKeepTheRest) {
    EXPECT_EQ(virtual_i210::deliverControl(received_, StampReport{}, target_), 0);
    const cmsghdr* first = CMSG_FIRSTHDR(&target_);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->cmsg_level, 263);
    EXPECT_EQ(std::memcmp(CMSG_DATA(first), "auxdata", 8), 0);
    EXPECT_EQ(target_.msg_controllen, CMSG_SPACE(8));
}

TEST_F(ControlMessages, AreCutAsTheKernelCutsThem) {
    StampReport report;
    report.hardwareNs = 1;
    target_.msg_controllen = CMSG_LEN(4);
    EXPECT_EQ(virtual_i210::deliverControl(received_, report, target_), MSG_CTRUNC);
    EXPECT_EQ(target_.msg_controllen, CMSG_LEN(4));
    EXPECT_EQ(reinterpret_cast<const cmsghdr*>(taken_.data())->cmsg_len, CMSG_LEN(4));
}

TEST_F(ControlMessages, TellOfAMissingBuffer) {
    target_.msg_control = nullptr;
    EXPECT_EQ(virtual_i210::deliverControl(received_, StampReport{}, target_), MSG_CTRUNC);
    EXPECT_EQ(target_.msg_controllen, 0u);
}

}  // namespace
