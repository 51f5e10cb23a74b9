#include "wire/ptpwire.h"

#include <gtest/gtest.h>

#include "tests/support/Hex.h"

namespace {

TEST(WireLoad, ReadsBigEndianAtAnyAddress) {
    const std::vector<unsigned char> bytes = fromHex("ff0102030405060708");
    EXPECT_EQ(0x0102U, wire::load16(bytes.data() + 1));
    EXPECT_EQ(0x010203U, wire::loadBigEndian<3>(bytes.data() + 1));
    EXPECT_EQ(0x01020304U, wire::load32(bytes.data() + 1));
    EXPECT_EQ(0x0102030405060708ULL, wire::load64(bytes.data() + 1));
}

TEST(WireStore, WritesItsOwnBytesOnly) {
    unsigned char bytes[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    wire::store16(bytes + 1, 0x12345);
    EXPECT_EQ("ee2345eeee", toHex(bytes, 5));
    wire::storeBigEndian<3>(bytes + 1, 0x0080C2);
    EXPECT_EQ("ee0080c2ee", toHex(bytes, 5));
}

TEST(WireTimestamp, Has48BitSecondsAnd32BitNanoseconds) {
    unsigned char bytes[10];
    wire::storeTimestamp(bytes, {0x123456789ABCULL, 0xDEF01234U});
    EXPECT_EQ("123456789abcdef01234", toHex(bytes, 10));
    const ptp_time_t time = wire::loadTimestamp(bytes);
    EXPECT_EQ(0x123456789ABCULL, time.seconds);
    EXPECT_EQ(0xDEF01234U, time.nanoseconds);
}

TEST(WireTimestamp, DropsTheUpper16BitsOfTheSeconds) {
    unsigned char bytes[10];
    wire::storeTimestamp(bytes, {0xFFFF000000000001ULL, 0});
    EXPECT_EQ("00000000000100000000", toHex(bytes, 10));
}

/** One byte value per field, in the order of the wire. */
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
    ASSERT_EQ(34U, header.size());
    EXPECT_EQ(3U, wire::messageType(header.data()));
    EXPECT_EQ(0xE2, header[wire::kVersion]);
    EXPECT_EQ(0x42U, wire::messageLength(header.data()));
    EXPECT_EQ(0x04, header[wire::kDomainNumber]);
    EXPECT_EQ(0x06, header[wire::kFlags]);
    EXPECT_EQ(0x08090A0B0C0D0E0FULL, wire::load64(&header[wire::kCorrectionField]));
    EXPECT_EQ(0x2021222324252627ULL, wire::load64(&header[wire::kSourceClockIdentity]));
    EXPECT_EQ(0x2829U, wire::load16(&header[wire::kSourcePortNumber]));
    EXPECT_EQ(0x3031U, wire::sequenceId(header.data()));
    EXPECT_EQ(0x32, header[wire::kControl]);
    EXPECT_EQ(0x33, header[wire::kLogMessageInterval]);
}

TEST(WireOffsets, OfTheFollowUpInformationTlv) {
    const std::vector<unsigned char> message = fromHex(
        "1802004c00000008000000000000000000000000001b21fffeaabbcc0003012302fd00006553f1003ade68b1"
        "0003001c0080c2000001a1a2a3a4b1b2c1c2c3c4c5c6c7c8c9cacbccd1d2d3d4");
    ASSERT_EQ(76U, message.size());
    EXPECT_EQ(3U, wire::load16(&message[wire::kFollowUpTlv]));
    EXPECT_EQ(0x0080C2U, wire::loadBigEndian<3>(&message[wire::kFollowUpOrganizationId]));
    EXPECT_EQ(1U, wire::loadBigEndian<3>(&message[wire::kFollowUpOrganizationSubType]));
    EXPECT_EQ(0xA1A2A3A4U, wire::load32(&message[wire::kCumulativeScaledRateOffset]));
    EXPECT_EQ(1700000000U, wire::loadTimestamp(&message[wire::kTimestamp]).seconds);
    EXPECT_EQ(987654321U, wire::loadTimestamp(&message[wire::kTimestamp]).nanoseconds);
}

}  // namespace
