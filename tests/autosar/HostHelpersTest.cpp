#include <cstring>

#include "AutosarInstance.h"

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
        EXPECT_EQ(SyncFollowUpAttachAutoSARTLV(frame.data(), 90, &passed, &length), 0);
        EXPECT_EQ(passed, frame.data()) << type;
        EXPECT_EQ(length, 90);
        EXPECT_EQ(frame, before);
    }
}

TEST(SyncFollowUpAttach, CopiesAFollowUpToTheGivenAddressWith86AtByte58) {
    for (const unsigned char type : {0x08, 0x18, 0xF8}) {
        std::vector<char> frame = frameOf(90, type);
        std::vector<char> copy(90, 0);
        int length = -7;
        EXPECT_EQ(SyncFollowUpAttachAutoSARTLV(frame.data(), 90, asDestination(copy), &length), 0);
        EXPECT_EQ(length, -7) << "stays as it was";
        frame[58] = 0;
        frame[59] = 86;
        EXPECT_EQ(copy, frame);
    }
}

TEST(SyncFollowUpAttach, WritesOnlyInsideFramesThatAreShort) {
    for (std::size_t size = 15; size <= 64; ++size) {
        std::vector<char> frame = frameOf(size, 0x18);
        std::vector<char> copy(size, 0);
        int length = 0;
        SyncFollowUpAttachAutoSARTLV(frame.data(), static_cast<int>(size), asDestination(copy),
                                     &length);
        if (size >= 60) {
            frame[58] = 0;
            frame[59] = 86;
        }
        EXPECT_EQ(copy, frame) << size;
    }
}

TEST(SyncFollowUpAttach, FramesWithoutATypeByteAreNoFollowUps) {
    for (std::size_t size = 1; size < 15; ++size) {
        std::vector<char> frame = frameOf(size, 0x18);
        char* passed = nullptr;
        int length = 0;
        SyncFollowUpAttachAutoSARTLV(frame.data(), static_cast<int>(size), &passed, &length);
        EXPECT_EQ(passed, frame.data());
        EXPECT_EQ(length, static_cast<int>(size));
    }
}

TEST(SyncFollowUpAttach, NothingIsReadForALengthOfZeroOrLess) {
    for (const int size : {0, -1, -90, -2147483647 - 1}) {
        char* passed = nullptr;
        int length = 1;
        char single = 0x18;
        EXPECT_EQ(SyncFollowUpAttachAutoSARTLV(&single, size, &passed, &length), 0);
        EXPECT_EQ(passed, &single);
        EXPECT_EQ(length, size);
    }
}

TEST(SyncFollowUpDetach, DoesNothing) {
    std::vector<char> frame = frameOf(90, 0x18);
    const std::vector<char> before = frame;
    std::vector<char> destination(90, 7);
    int length = 3;
    for (const int size : {90, 0, -1, 2147483647}) {
        EXPECT_EQ(SyncFollowUpDetachAutoSARTLV(frame.data(), size, destination.data(), &length), 0);
        EXPECT_EQ(frame, before);
        EXPECT_EQ(destination, std::vector<char>(90, 7));
        EXPECT_EQ(length, 3);
    }
    EXPECT_EQ(SyncFollowUpDetachAutoSARTLV(nullptr, 90, nullptr, nullptr), 0);
}

}  // namespace
