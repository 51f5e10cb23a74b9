#include <cstring>

#include "tests/autosar/AutosarInstance.h"

namespace {

/** A frame with the PTP message behind 14 bytes, of exactly this length on the heap. */
std::vector<char> frameOf(std::size_t length, unsigned char typeByte) {
    std::vector<char> frame(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame[i] = static_cast<char>(i + 1);
    }
    if (length > 14) {
        frame[14] = static_cast<char>(typeByte);
    }
    return frame;
}

/** The helper takes a buffer of the host in place of the pointer to one. */
char** asDestination(std::vector<char>& buffer) {
    return reinterpret_cast<char**>(buffer.data());
}

TEST(SyncFollowUpAttach, PassesOtherMessagesOnUntouched) {
    for (unsigned int type = 0; type < 256; ++type) {
        if (type % 16 == 8) {
            continue;
        }
        std::vector<char> frame = frameOf(90, static_cast<unsigned char>(type));
        const std::vector<char> before = frame;
        char* passed = nullptr;
        int length = 0;
        EXPECT_EQ(0, SyncFollowUpAttachAutoSARTLV(frame.data(), 90, &passed, &length));
        EXPECT_EQ(frame.data(), passed) << type;
        EXPECT_EQ(90, length);
        EXPECT_EQ(before, frame);
    }
}

TEST(SyncFollowUpAttach, CopiesAFollowUpToTheGivenAddressWith86AtByte58) {
    for (const unsigned char type : {0x08, 0x18, 0xF8}) {
        std::vector<char> frame = frameOf(90, type);
        std::vector<char> copy(90, 0);
        int length = -7;
        EXPECT_EQ(0, SyncFollowUpAttachAutoSARTLV(frame.data(), 90, asDestination(copy), &length));
        EXPECT_EQ(-7, length) << "stays as it was";
        std::vector<char> expected = frameOf(90, type);
        EXPECT_EQ(expected, frame);
        expected[58] = 0;
        expected[59] = 86;
        EXPECT_EQ(expected, copy);
    }
}

TEST(SyncFollowUpAttach, WritesOnlyInsideFramesThatAreShort) {
    for (std::size_t size = 15; size <= 64; ++size) {
        std::vector<char> frame = frameOf(size, 0x18);
        std::vector<char> copy(size, 0);
        int length = 0;
        SyncFollowUpAttachAutoSARTLV(frame.data(), static_cast<int>(size), asDestination(copy),
                                     &length);
        std::vector<char> expected = frameOf(size, 0x18);
        if (size >= 60) {
            expected[58] = 0;
            expected[59] = 86;
        }
        EXPECT_EQ(expected, copy) << size;
    }
}

TEST(SyncFollowUpAttach, FramesWithoutATypeByteAreNoFollowUps) {
    for (std::size_t size = 1; size < 15; ++size) {
        std::vector<char> frame = frameOf(size, 0x18);
        char* passed = nullptr;
        int length = 0;
        SyncFollowUpAttachAutoSARTLV(frame.data(), static_cast<int>(size), &passed, &length);
        EXPECT_EQ(frame.data(), passed);
        EXPECT_EQ(static_cast<int>(size), length);
    }
}

TEST(SyncFollowUpAttach, NothingIsReadForALengthOfZeroOrLess) {
    for (const int size : {0, -1, -90, -2147483647 - 1}) {
        char* passed = nullptr;
        int length = 1;
        char single = 0x18;
        EXPECT_EQ(0, SyncFollowUpAttachAutoSARTLV(&single, size, &passed, &length));
        EXPECT_EQ(&single, passed);
        EXPECT_EQ(size, length);
    }
}

TEST(SyncFollowUpDetach, DoesNothing) {
    std::vector<char> frame = frameOf(90, 0x18);
    const std::vector<char> before = frame;
    std::vector<char> destination(90, 7);
    int length = 3;
    for (const int size : {90, 0, -1, 2147483647}) {
        EXPECT_EQ(0, SyncFollowUpDetachAutoSARTLV(frame.data(), size, destination.data(), &length));
        EXPECT_EQ(before, frame);
        EXPECT_EQ(std::vector<char>(90, 7), destination);
        EXPECT_EQ(3, length);
    }
    EXPECT_EQ(0, SyncFollowUpDetachAutoSARTLV(nullptr, 90, nullptr, nullptr));
}

}  // namespace
