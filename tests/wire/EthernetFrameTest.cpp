#include "wire/EthernetFrame.h"

#include <gtest/gtest.h>

#include "tests/support/Hex.h"

namespace {

using ethernet::VlanTag;

constexpr VlanTag kUntagged{-1, 7};
constexpr VlanTag kVlan5{5, 6};
constexpr unsigned char kOwnMac[] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

/** The header of a frame, written over bytes 0xee. */
std::string headerFor(const VlanTag& tag) {
    std::vector<unsigned char> frame(20, 0xEE);
    const int size = ethernet::writeHeader(frame.data(), ethernet::kGptpAddress, kOwnMac, tag);
    EXPECT_EQ(tag.headerSize(), size);
    return toHex(frame);
}

/** A frame from 02-11-22-33-44-55 whose bytes from the EtherType on are given. */
std::vector<unsigned char> frameWith(const std::string& rest) {
    return fromHex("0180c200000e021122334455" + rest);
}

TEST(EthernetHeader, IsFourBytesLongerWithATag) {
    EXPECT_EQ(14, kUntagged.headerSize());
    EXPECT_EQ(18, kVlan5.headerSize());
    EXPECT_EQ(18, (VlanTag{0, 0}).headerSize());
}

TEST(EthernetHeader, UntaggedEndsWithThePtpEtherType) {
    EXPECT_EQ("0180c200000e02112233445588f7eeeeeeeeeeee", headerFor(kUntagged));
}

TEST(EthernetHeader, TaggedCarriesPriorityAndId) {
    EXPECT_EQ("0180c200000e0211223344558100c00588f7eeee", headerFor(kVlan5));
    EXPECT_EQ("0180c200000e0211223344558100000088f7eeee", headerFor({0, 0}));
    EXPECT_EQ("0180c200000e0211223344558100efff88f7eeee", headerFor({4095, 7}));
}

TEST(EthernetHeader, ValuesBeyondTheirFieldSpillOver) {
    EXPECT_EQ("0180c200000e0211223344558100100088f7eeee", headerFor({4096, 0}));
    EXPECT_EQ("0180c200000e0211223344558100200188f7eeee", headerFor({1, 9}));
}

TEST(ForeignVlan, OnlyTheIdOfTheTagCounts) {
    EXPECT_FALSE(ethernet::isForeignVlan(frameWith("8100000588f71002").data(), kVlan5));
    EXPECT_FALSE(ethernet::isForeignVlan(frameWith("8100f00588f71002").data(), kVlan5));
    EXPECT_TRUE(ethernet::isForeignVlan(frameWith("8100000688f71002").data(), kVlan5));
    EXPECT_TRUE(ethernet::isForeignVlan(frameWith("8100010588f71002").data(), kVlan5));
    EXPECT_TRUE(ethernet::isForeignVlan(frameWith("88f7100200050000").data(), kVlan5));
    EXPECT_TRUE(ethernet::isForeignVlan(frameWith("88a8000588f71002").data(), kVlan5));
}

TEST(ForeignVlan, NoFrameIsOfId4096) {
    for (const char* tci : {"0000", "1000", "ffff"}) {
        EXPECT_TRUE(ethernet::isForeignVlan(
            frameWith("8100" + std::string(tci) + "88f71002").data(), {4096, 0}));
    }
}

TEST(FrameSource, IsTheSecondAddress) {
    const std::vector<unsigned char> frame = frameWith("88f71002");
    EXPECT_TRUE(ethernet::isFrom(frame.data(), kOwnMac));
    for (std::size_t i = 0; i < sizeof kOwnMac; ++i) {
        std::vector<unsigned char> other = frame;
        other[6 + i] ^= 0x01;
        EXPECT_FALSE(ethernet::isFrom(other.data(), kOwnMac)) << i;
    }
    EXPECT_FALSE(ethernet::isFrom(frame.data(), ethernet::kGptpAddress));
}

TEST(TagPutBack, MovesWhatFollowsTheAddresses) {
    std::vector<unsigned char> frame = frameWith("88f710020000eeeeeeee");
    EXPECT_EQ(22, ethernet::putTagBack(frame.data(), 18, 0x8100, 0xE005));
    EXPECT_EQ("0180c200000e0211223344558100e00588f710020000", toHex(frame));
}

TEST(TagPutBack, NeedsBothAddresses) {
    std::vector<unsigned char> frame = frameWith("eeeeeeee");
    EXPECT_EQ(11, ethernet::putTagBack(frame.data(), 11, 0x8100, 0xE005));
    EXPECT_EQ("0180c200000e021122334455eeeeeeee", toHex(frame));
    EXPECT_EQ(16, ethernet::putTagBack(frame.data(), 12, 0x8100, 0xE005));
    EXPECT_EQ("0180c200000e0211223344558100e005", toHex(frame));
}

}  // namespace
