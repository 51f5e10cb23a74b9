#include "tools/simulate/flood/FloodFrame.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr simulate::MacAddress kSource{0x02, 0, 0, 0, 0, 0x09};

Bytes frameOf(const std::string& kind, std::uint32_t number) {
    std::mt19937_64 random(1);
    return simulate::floodFrame(kind, kSource, number, random);
}

TEST(AFloodOfSync, ComesFromOneForeignMaster) {
    const Bytes expected = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E, 0x02, 0, 0, 0, 0, 0x09, 0x88, 0xF7,
                            // Sync, 44 bytes, two steps
                            0x10, 0x02, 0x00, 0x2C, 0, 0, 0x02, 0x08,
                            // correctionField and what is reserved
                            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                            // port, sequenceId, control
                            0x0A, 0xFF, 0xFF, 0xFE, 0, 0, 0, 1, 0, 1, 0x12, 0x34, 0, 0,
                            // originTimestamp
                            0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(frameOf("sync", 0x51234), expected);
}

TEST(AFloodOfIdentities, HasAnotherPortInEachFrame) {
    Bytes expected = frameOf("sync", 0x10203);
    expected[14 + 24 + 1] = 1;
    expected[14 + 24 + 2] = 2;
    expected[14 + 24 + 3] = 3;
    EXPECT_EQ(frameOf("identities", 0x10203), expected);
}

TEST(AFloodOfRequesters, HasAnotherPortInEachFrame) {
    Bytes expected = frameOf("pdelay-req", 0x10203);
    expected[14 + 24 + 1] = 1;
    expected[14 + 24 + 2] = 2;
    expected[14 + 24 + 3] = 3;
    EXPECT_EQ(frameOf("requesters", 0x10203), expected);
}

TEST(AFloodOfPdelay, HasMessagesOfTheirLength) {
    for (const auto& [kind, type] :
         {std::pair("pdelay-req", 0x12), std::pair("pdelay-resp", 0x13)}) {
        const Bytes frame = frameOf(kind, 1);
        EXPECT_EQ(frame.size(), 14u + 54u) << kind;
        EXPECT_EQ(frame[14], type) << kind;
        EXPECT_EQ(frame[17], 54) << kind;
    }
}

TEST(AMalformedFlood, IsRandomBehindTheEtherTypeAndRepeatable) {
    std::mt19937_64 random(1);
    const Bytes first = simulate::floodFrame("malformed", kSource, 0, random);
    const Bytes second = simulate::floodFrame("malformed", kSource, 1, random);
    EXPECT_EQ(Bytes(first.begin(), first.begin() + 14), Bytes(second.begin(), second.begin() + 14));
    EXPECT_NE(first, second);
    EXPECT_EQ(first, frameOf("malformed", 0));
    EXPECT_LE(first.size(), 1514u);
}

}  // namespace
