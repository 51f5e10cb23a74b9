#include "tools/virtual_i210/Frame.h"

#include <gtest/gtest.h>

#include "tests/virtual_i210/PtpFrames.h"

namespace {

using virtual_i210::eventKey;
using virtual_i210::parsePtpFrame;

std::uint64_t keyOf(const Bytes& frame) {
    return eventKey(frame.data(), *parsePtpFrame(frame.data(), frame.size()));
}

TEST(Frame, FindsTheMessageBehindTags) {
    const Bytes plain = ptpFrame(8, 0x1234);
    const auto ptp = parsePtpFrame(plain.data(), plain.size());
    ASSERT_TRUE(ptp);
    EXPECT_EQ(14u, ptp->ptpOffset);
    EXPECT_EQ(44u, ptp->ptpLength);
    EXPECT_EQ(8u, ptp->messageType);
    EXPECT_EQ(0x1234u, ptp->sequenceId);
    EXPECT_FALSE(ptp->isEvent());
    const Bytes tagged = taggedPtpFrame(3, 1, 0xE005);
    const auto behind = parsePtpFrame(tagged.data(), tagged.size());
    ASSERT_TRUE(behind);
    EXPECT_EQ(18u, behind->ptpOffset);
    EXPECT_TRUE(behind->isEvent());
}

TEST(Frame, IsNoneWhenCutOrForeign) {
    Bytes frame = taggedPtpFrame(0, 1, 5);
    for (std::size_t length = 0; length < 18 + 34; ++length) {
        const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(parsePtpFrame(cut.data(), cut.size())) << length;
    }
    frame[16] = 0x08;
    EXPECT_FALSE(parsePtpFrame(frame.data(), frame.size()));
}

TEST(Frame, HasTheSameKeyWithoutItsTagAndWithPadding) {
    Bytes padded = ptpFrame(0, 1);
    padded.resize(60);
    EXPECT_EQ(keyOf(ptpFrame(0, 1)), keyOf(taggedPtpFrame(0, 1, 0xE005)));
    EXPECT_EQ(keyOf(ptpFrame(0, 1)), keyOf(padded));
}

TEST(Frame, HasAnotherKeyWithAnotherByte) {
    EXPECT_NE(keyOf(ptpFrame(0, 2)), keyOf(ptpFrame(0, 1)));
    EXPECT_NE(keyOf(ptpFrame(0, 1, 2)), keyOf(ptpFrame(0, 1, 1)));
}

TEST(Frame, ComesBackFromItsDisguise) {
    for (const Bytes& original : {ptpFrame(0, 1), taggedPtpFrame(0, 1, 5)}) {
        Bytes frame = original;
        virtual_i210::disguise(frame.data(), *parsePtpFrame(frame.data(), frame.size()));
        EXPECT_FALSE(parsePtpFrame(frame.data(), frame.size()));
        virtual_i210::undisguise(frame.data(), frame.size());
        EXPECT_EQ(original, frame);
    }
}

}  // namespace
