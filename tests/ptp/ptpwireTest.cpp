#include "ptp/ptpwire.h"

#include <gtest/gtest.h>

#include "tests/support/Vectors.h"

namespace {

TEST(WireLoad, ReadsBigEndianAtAnyAddress) {
    const std::vector<unsigned char> bytes = fromHex("ff0102030405060708");
    EXPECT_EQ(wire::load16(bytes.data() + 1), 0x0102U);
    EXPECT_EQ(wire::loadBigEndian<3>(bytes.data() + 1), 0x010203U);
    EXPECT_EQ(wire::load32(bytes.data() + 1), 0x01020304U);
    EXPECT_EQ(wire::load64(bytes.data() + 1), 0x0102030405060708ULL);
}

TEST(WireStore, WritesItsOwnBytesOnly) {
    unsigned char bytes[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    wire::store16(bytes + 1, 0x12345);
    EXPECT_EQ(toHex(bytes, 5), "ee2345eeee");
    wire::storeBigEndian<3>(bytes + 1, 0x0080C2);
    EXPECT_EQ(toHex(bytes, 5), "ee0080c2ee");
}

TEST(WireTimestamp, Has48BitSecondsAnd32BitNanoseconds) {
    unsigned char bytes[10];
    wire::storeTimestamp(bytes, {0x123456789ABCULL, 0xDEF01234U});
    EXPECT_EQ(toHex(bytes, 10), "123456789abcdef01234");
    const ptp_time_t time = wire::loadTimestamp(bytes);
    EXPECT_EQ(time.seconds, 0x123456789ABCULL);
    EXPECT_EQ(time.nanoseconds, 0xDEF01234U);
}

TEST(WireTimestamp, DropsTheUpper16BitsOfTheSeconds) {
    unsigned char bytes[10];
    wire::storeTimestamp(bytes, {0xFFFF000000000001ULL, 0});
    EXPECT_EQ(toHex(bytes, 10), "00000000000100000000");
}

// One byte value per field, in the order of the wire.
const char kHeader[] =
    "d3e20042"
    "04"
    "05"
    "0607"
    "08090a0b0c0d0e0f"
    "10111213"
    "2021222324252627"
    "2829"
    "3031"
    "32"
    "33";

TEST(WireOffsets, OfTheCommonHeader) {
    const std::vector<unsigned char> header = fromHex(kHeader);
    ASSERT_EQ(header.size(), 34U);
    EXPECT_EQ(wire::messageType(header.data()), 3U);
    EXPECT_EQ(header[wire::kVersion], 0xE2);
    EXPECT_EQ(wire::messageLength(header.data()), 0x42U);
    EXPECT_EQ(header[wire::kDomainNumber], 0x04);
    EXPECT_EQ(header[wire::kFlags], 0x06);
    EXPECT_EQ(wire::load64(&header[wire::kCorrectionField]), 0x08090A0B0C0D0E0FULL);
    EXPECT_EQ(wire::load64(&header[wire::kSourceClockIdentity]), 0x2021222324252627ULL);
    EXPECT_EQ(wire::load16(&header[wire::kSourcePortNumber]), 0x2829U);
    EXPECT_EQ(wire::sequenceId(header.data()), 0x3031U);
    EXPECT_EQ(header[wire::kControl], 0x32);
    EXPECT_EQ(header[wire::kLogMessageInterval], 0x33);
}

TEST(WireOffsets, OfTheFollowUpInformationTlv) {
    const std::vector<unsigned char> message = fromHex(
        "1802004c00000008000000000000000000000000001b21fffeaabbcc0003012302fd00006553f1003ade68b1"
        "0003001c0080c2000001a1a2a3a4b1b2c1c2c3c4c5c6c7c8c9cacbccd1d2d3d4");
    ASSERT_EQ(message.size(), 76U);
    EXPECT_EQ(wire::load16(&message[wire::kFollowUpTlv]), 3U);
    EXPECT_EQ(wire::loadBigEndian<3>(&message[wire::kFollowUpOrganizationId]), 0x0080C2U);
    EXPECT_EQ(wire::loadBigEndian<3>(&message[wire::kFollowUpOrganizationSubType]), 1U);
    EXPECT_EQ(wire::load32(&message[wire::kCumulativeScaledRateOffset]), 0xA1A2A3A4U);
    EXPECT_EQ(wire::loadTimestamp(&message[wire::kTimestamp]).seconds, 1700000000U);
    EXPECT_EQ(wire::loadTimestamp(&message[wire::kTimestamp]).nanoseconds, 987654321U);
}

}  // namespace
