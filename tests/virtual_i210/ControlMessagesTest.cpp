#include "tools/virtual_i210/ControlMessages.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace {

using virtual_i210::ControlWriter;
using virtual_i210::StampReport;

constexpr int kTimestamping = 37;

/** Control messages as a kernel gives them: one software timestamp, one of another kind. */
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
    EXPECT_EQ(100'000'000'005, virtual_i210::softwareStampNs(received_));
}

TEST_F(ControlMessages, CarryTheHardwareTimestampThird) {
    StampReport report;
    report.hardwareNs = 7'000'000'009;
    EXPECT_EQ(0, virtual_i210::deliverControl(received_, report, target_));
    const cmsghdr* first = CMSG_FIRSTHDR(&target_);
    ASSERT_NE(nullptr, first);
    ASSERT_EQ(kTimestamping, first->cmsg_type);
    ASSERT_EQ(CMSG_LEN(3 * sizeof(timespec)), first->cmsg_len);
    timespec stamps[3];
    std::memcpy(stamps, CMSG_DATA(first), sizeof stamps);
    EXPECT_EQ(0, stamps[0].tv_sec);
    EXPECT_EQ(0, stamps[0].tv_nsec);
    EXPECT_EQ(7, stamps[2].tv_sec);
    EXPECT_EQ(9, stamps[2].tv_nsec);
}

TEST_F(ControlMessages, DropAnUnwantedTimestampAndKeepTheRest) {
    EXPECT_EQ(0, virtual_i210::deliverControl(received_, StampReport{}, target_));
    const cmsghdr* first = CMSG_FIRSTHDR(&target_);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(263, first->cmsg_level);
    EXPECT_EQ(0, std::memcmp(CMSG_DATA(first), "auxdata", 8));
    EXPECT_EQ(CMSG_SPACE(8), target_.msg_controllen);
}

TEST_F(ControlMessages, AreCutAsTheKernelCutsThem) {
    StampReport report;
    report.hardwareNs = 1;
    target_.msg_controllen = CMSG_LEN(4);
    EXPECT_EQ(MSG_CTRUNC, virtual_i210::deliverControl(received_, report, target_));
    EXPECT_EQ(CMSG_LEN(4), target_.msg_controllen);
    EXPECT_EQ(CMSG_LEN(4), reinterpret_cast<const cmsghdr*>(taken_.data())->cmsg_len);
}

TEST_F(ControlMessages, TellOfAMissingBuffer) {
    target_.msg_control = nullptr;
    EXPECT_EQ(MSG_CTRUNC, virtual_i210::deliverControl(received_, StampReport{}, target_));
    EXPECT_EQ(0u, target_.msg_controllen);
}

TEST_F(ControlMessages, TellSimulatedTimeInEachForm) {
    ControlWriter writer(given_.data(), given_.size());
    const timespec exact[3] = {{100, 5}, {0, 0}, {0, 0}};
    writer.put(SOL_SOCKET, kTimestamping, exact, sizeof exact);
    const timeval coarse = {100, 5};
    writer.put(SOL_SOCKET, SO_TIMESTAMP, &coarse, sizeof coarse);
    writer.put(SOL_SOCKET, SO_TIMESTAMPNS, exact, sizeof exact[0]);
    writer.put(263, SO_TIMESTAMP, "no time at all!!", 16);
    received_.msg_controllen = writer.used();
    virtual_i210::simulateKernelStamps(received_, 7'000'000'987);
    EXPECT_EQ(7'000'000'987, virtual_i210::softwareStampNs(received_));
    cmsghdr* header = CMSG_NXTHDR(&received_, CMSG_FIRSTHDR(&received_));
    timeval toldCoarse{};
    std::memcpy(&toldCoarse, CMSG_DATA(header), sizeof toldCoarse);
    EXPECT_EQ(7, toldCoarse.tv_sec);
    EXPECT_EQ(0, toldCoarse.tv_usec);
    header = CMSG_NXTHDR(&received_, header);
    timespec told{};
    std::memcpy(&told, CMSG_DATA(header), sizeof told);
    EXPECT_EQ(7, told.tv_sec);
    EXPECT_EQ(987, told.tv_nsec);
    header = CMSG_NXTHDR(&received_, header);
    EXPECT_EQ(0, std::memcmp(CMSG_DATA(header), "no time at all!!", 16));
}

}  // namespace
