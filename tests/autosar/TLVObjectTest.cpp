#include "autosar/TLVObject.h"

#include "tests/autosar/AutosarInstance.h"
#include "tests/support/Hex.h"

namespace {

class SubTlvBuilding : public AutosarInstance {
protected:
    SubTlvBuilding() : followUp(securedMessage()) { block.cfg.CrcTimeFlags = 0x3F; }

    std::string subTlvHex(int type) { return toHex(subTlv(type, followUp)); }

    FollowUp followUp;
};

TEST_F(SubTlvBuilding, HeadersAreAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("header_block")) {
        const TLVObject headers(0, nullptr, vector.at("mask").get<unsigned char>());
        EXPECT_EQ(vector.at("bytes"), toHex(headers.bytes, headers.count)) << vector;
    }
}

TEST_F(SubTlvBuilding, SizesOfEveryMaskAreThoseOfItsVector) {
    for (const nlohmann::json& vector : vectors("tlv_mask_lengths")) {
        const Bytes block = built(followUp, vector.at("mask"));
        EXPECT_EQ(vector.at("messageLength").get<std::size_t>(), 44 + block.size()) << vector;
        EXPECT_EQ(vector.at("lengthField").get<unsigned int>(), wire::load16(block.data() + 34))
            << vector;
    }
}

TEST_F(SubTlvBuilding, HeadersOfTimeAloneAnnounceEleven) {
    EXPECT_EQ("0003000b1a75fb605676", toHex(TLVObject(0, nullptr, 0x01).bytes + 32, 10));
}

TEST_F(SubTlvBuilding, HeadersOfTheFiveConfigurableSubTlvsAnnounce33) {
    EXPECT_EQ("000300211a75fb605676", toHex(TLVObject(0, nullptr, 0x1F).bytes + 32, 10));
}

/** Follow_Up of a vector without its sub-TLVs, ready for building them. */
FollowUp headerOf(const nlohmann::json& vector) {
    return FollowUp(fromHex(vector.at("message").get<std::string>().substr(0, 152)));
}

TEST_F(SubTlvBuilding, FollowUpsAreAsEveryVectorTells) {
    int assembled = 0;
    for (const nlohmann::json& vector : vectors("follow_up")) {
        if (vector.at("mask") == 0) {
            continue;
        }
        configure(block, vector);
        block.cfg.role = 1;
        FollowUp message = headerOf(vector);
        const Bytes tlvs = built(message, vector.at("mask"));
        EXPECT_EQ(vector.at("message").get<std::string>().substr(88), toHex(tlvs)) << vector;
        ++assembled;
    }
    EXPECT_EQ(16, assembled);
}

TEST_F(SubTlvBuilding, TimeCrcsAreThoseOfTheListedBytes) {
    for (const nlohmann::json& vector : vectors("follow_up")) {
        if (!vector.contains("crcTime0Over") || vector.at("TxCrcMode") != 1) {
            continue;
        }
        configure(block, vector);
        const Bytes tlv = fromHex(vector.at("autosarTlv"));
        const Bytes over0 = fromHex(vector.at("crcTime0Over"));
        const Bytes over1 = fromHex(vector.at("crcTime1Over"));
        EXPECT_EQ(tlv.at(13), Crc_CalculateCRC8H2F(over0.data(), over0.size(), 0, true)) << vector;
        EXPECT_EQ(tlv.at(14), Crc_CalculateCRC8H2F(over1.data(), over1.size(), 0, true)) << vector;
    }
}

TEST_F(SubTlvBuilding, SequenceId0123UsesTheDataIdOfEntry3) {
    EXPECT_EQ("50020098", subTlvHex(0x50));
    block.cfg.DataIDList[3] = 0x17;
    EXPECT_EQ("50020024", subTlvHex(0x50));
    for (int entry = 0; entry < 16; ++entry) {
        block.cfg.DataIDList[entry] = entry == 3 ? 0x13 : 0xEE;
    }
    EXPECT_EQ("50020098", subTlvHex(0x50));
}

TEST_F(SubTlvBuilding, DataIdFollowsTheLowFourBitsOfTheSequenceId) {
    const char* const expected[] = {"e9", "c6", "b7", "98", "55", "7a", "0b", "24",
                                    "be", "91", "e0", "cf", "02", "2d", "5c", "73"};
    for (unsigned int sequence = 0; sequence < 16; ++sequence) {
        for (const unsigned int high : {0x0000U, 0x00F0U, 0xAB50U, 0xFFF0U}) {
            wire::store16(followUp.buffer + wire::kSequenceId, high + sequence);
            EXPECT_EQ(std::string("500200") + expected[sequence], subTlvHex(0x50)) << high;
        }
    }
}

TEST_F(SubTlvBuilding, WithoutFlagsTheTimeCrcsCoverOnlyFlagsAndDataId) {
    block.cfg.CrcTimeFlags = 0;
    EXPECT_EQ("2803009898", subTlvHex(0x28));
    FollowUp other(fromHex("1802006605000008ffffffffffffffff000000000011223344556677aa550f2302fd"));
    EXPECT_EQ("2803009898", toHex(subTlv(0x28, other)));
}

/** Whether a change of one header byte changes CRC_Time_0 and CRC_Time_1. */
TEST_F(SubTlvBuilding, EveryFlagCoversExactlyItsField) {
    struct Cover {
        unsigned char flag;
        unsigned int begin, end;
        bool second;
    };
    for (const Cover& cover :
         {Cover{0x01, 2, 4, true}, Cover{0x02, 4, 5, false}, Cover{0x04, 8, 16, true},
          Cover{0x08, 28, 30, false}, Cover{0x10, 30, 32, true}, Cover{0x20, 34, 44, false}}) {
        block.cfg.CrcTimeFlags = cover.flag;
        const Bytes intact = subTlv(0x28, followUp);
        for (unsigned int at = 0; at < 76; ++at) {
            followUp.buffer[at] ^= 0x10;  // leaves the entry of the data ID
            const Bytes changed = subTlv(0x28, followUp);
            const bool covered = at >= cover.begin && at < cover.end;
            EXPECT_EQ(covered && !cover.second, changed[3] != intact[3]) << +cover.flag << at;
            EXPECT_EQ(covered && cover.second, changed[4] != intact[4]) << +cover.flag << at;
            followUp.buffer[at] ^= 0x10;
        }
    }
}

TEST_F(SubTlvBuilding, FlagsWithoutAFieldCoverNothing) {
    block.cfg.CrcTimeFlags = 0xC0;
    const Bytes tlv = subTlv(0x28, followUp);
    const Bytes over = {0xC0, 0x13};
    const unsigned char crc = Crc_CalculateCRC8H2F(over.data(), 2, 0, true);
    EXPECT_EQ("2803c0" + toHex(&crc, 1) + toHex(&crc, 1), toHex(tlv));
}

TEST_F(SubTlvBuilding, SecuredStatusTellsOnlyTheGatewayBit) {
    for (unsigned int status = 0; status < 256; ++status) {
        block.timeBaseStatus = static_cast<unsigned char>(status);
        EXPECT_EQ((status & 4U) != 0 ? "50020171" : "50020098", subTlvHex(0x50)) << status;
    }
}

TEST_F(SubTlvBuilding, UnsecuredStatusIsTheWholeByteWithoutACrc) {
    for (unsigned int status = 0; status < 256; ++status) {
        block.timeBaseStatus = static_cast<unsigned char>(status);
        EXPECT_EQ("5102" + toHex(&block.timeBaseStatus, 1) + "00", subTlvHex(0x51));
    }
}

TEST_F(SubTlvBuilding, Status04Is1SecuredAnd04Otherwise) {
    block.timeBaseStatus = 0x04;
    EXPECT_EQ("50020171", subTlvHex(0x50));
    EXPECT_EQ("51020400", subTlvHex(0x51));
}

TEST_F(SubTlvBuilding, UserDataGoOutAsTheyAreStored) {
    block.userDataLength = 200;
    block.userBytes[0] = 0xA1;
    block.userBytes[1] = 0xA2;
    block.userBytes[2] = 0xA3;
    EXPECT_EQ("6105c8a1a2a300", subTlvHex(0x61));
    EXPECT_EQ("6005c8a1a2a3", subTlvHex(0x60).substr(0, 12));
}

TEST_F(SubTlvBuilding, OffsetTimeBaseIsAllZero) {
    const std::string zeros(32, '0');
    EXPECT_EQ("4411" + zeros + "a4", subTlvHex(0x44));
    EXPECT_EQ("3411" + zeros + "00", subTlvHex(0x34));
}

TEST_F(SubTlvBuilding, WithoutCrcsMastersWrite00AndSlavesFF) {
    block.cfg.TxCrcMode = 0;
    block.cfg.role = 1;
    EXPECT_EQ("28033f0000", subTlvHex(0x28));
    EXPECT_EQ("50020000", subTlvHex(0x50));
    block.cfg.role = 0;
    EXPECT_EQ("28033fffff", subTlvHex(0x28));
    EXPECT_EQ("600500000000ff", subTlvHex(0x60));
}

TEST_F(SubTlvBuilding, AWrongCrcModeIsLoggedForEveryPieceOfEveryCrc) {
    block.cfg.TxCrcMode = 7;
    block.cfg.role = 1;
    for (const nlohmann::json& vector : vectors("crc_error_lines")) {
        const StdoutCapture output;
        built(followUp, vector.at("mask"));
        EXPECT_EQ(vector.at("lines").get<int>(),
                  output.count("Wrong configuration TxCrcMode: 0x7 ...\n"))
            << vector;
    }
}

TEST_F(SubTlvBuilding, UnknownTypesPrintALineAndBuildNothing) {
    const StdoutCapture output;
    std::string expected;
    for (int type = -3; type < 300; ++type) {
        const bool known = type == 0 || type == 0x28 || type == 0x34 || type == 0x44 ||
                           type == 0x50 || type == 0x51 || type == 0x60 || type == 0x61;
        if (!known) {
            EXPECT_TRUE(subTlv(type, followUp).empty()) << type;
            expected += "@TLVObject(340): *** FATAL internal error ***\n";
        }
    }
    EXPECT_EQ(expected, output.text());
}

TEST_F(SubTlvBuilding, AnEmptyBlockHoldsNothing) {
    const TLVObject empty;
    EXPECT_EQ(0U, empty.count);
    EXPECT_EQ(std::string(512, '0'), toHex(empty.bytes, sizeof empty.bytes));
}

TEST_F(SubTlvBuilding, BlocksHave256Bytes) {
    EXPECT_EQ(260U, sizeof(TLVObject));
}

}  // namespace
