#include "autosar/Crc8H2F.h"

#include <utility>

#include "AutosarInstance.h"

namespace {

class Crc8H2F : public AutosarInstance {
protected:
    static unsigned char first(const Bytes& data) {
        return Crc_CalculateCRC8H2F(data.data(), static_cast<unsigned int>(data.size()), 0xA5,
                                    true);
    }

    static unsigned char further(const Bytes& data, unsigned char previous) {
        return Crc_CalculateCRC8H2F(data.data(), static_cast<unsigned int>(data.size()), previous,
                                    false);
    }
};

unsigned char hexByte(const nlohmann::json& digits) {
    return fromHex(digits).at(0);
}

TEST_F(Crc8H2F, TableIsTheOneOfItsPolynomial) {
    const nlohmann::json& vector = vectors("crc8h2f").at(0);
    ASSERT_EQ(vector.at("name"), "table");
    EXPECT_EQ(toHex(crc8h2f::kTable.data(), crc8h2f::kTable.size()), vector.at("whole"));
    EXPECT_EQ(toHex(crc8h2f::kTable.data(), 16), vector.at("first16"));
}

TEST_F(Crc8H2F, OfOnePieceIsAsEveryVectorTells) {
    int checked = 0;
    for (const nlohmann::json& vector : vectors("crc8h2f")) {
        if (vector.at("name") == "first call") {
            EXPECT_EQ(first(fromHex(vector.at("data"))), hexByte(vector.at("crc"))) << vector;
            ++checked;
        }
    }
    EXPECT_EQ(checked, 11);
}

TEST_F(Crc8H2F, OfTheNineDigitsIsThePublishedCheckValue) {
    EXPECT_EQ(first({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xDF);
}

TEST_F(Crc8H2F, OfASingleZeroByteIsBD) {
    EXPECT_EQ(first({0x00}), 0xBD);
}

TEST_F(Crc8H2F, GoesOnFromThePreviousPiece) {
    for (const nlohmann::json& vector : vectors("crc8h2f")) {
        if (vector.at("name") == "split 4+5") {
            const unsigned char crc = first(fromHex(vector.at("piece1")));
            EXPECT_EQ(crc, hexByte(vector.at("crc1")));
            EXPECT_EQ(further(fromHex(vector.at("piece2")), crc), hexByte(vector.at("crc2")));
        } else if (vector.at("name") == "empty continuation") {
            EXPECT_EQ(further({}, hexByte(vector.at("start"))), hexByte(vector.at("crc")));
        }
    }
}

TEST_F(Crc8H2F, OfNothingIsZeroForAFirstPieceAndThePreviousOneAfterwards) {
    EXPECT_EQ(Crc_CalculateCRC8H2F(nullptr, 0, 0x77, true), 0x00);
    EXPECT_EQ(Crc_CalculateCRC8H2F(nullptr, 0, 0x77, false), 0x77);
}

TEST_F(Crc8H2F, IsTheSameForEveryWayToSplitTheData) {
    std::mt19937 random = seededGenerator();
    Bytes data(64);
    for (unsigned char& byte : data) {
        byte = static_cast<unsigned char>(random());
    }
    const unsigned char whole = first(data);
    for (auto cut = data.begin(); cut <= data.end(); ++cut) {
        EXPECT_EQ(further({cut, data.end()}, first({data.begin(), cut})), whole)
            << cut - data.begin();
        if (cut == data.end()) {
            break;
        }
    }
}

TEST_F(Crc8H2F, ChangesWithEverySingleBit) {
    Bytes data = fromHex("6553f1003ade68b1000301230000005b");
    const unsigned char intact = first(data);
    for (std::size_t bit = 0; bit < data.size() * 8; ++bit) {
        const auto flip = static_cast<unsigned char>(1U << bit % 8);
        data[bit / 8] ^= flip;
        EXPECT_NE(first(data), intact) << bit;
        data[bit / 8] ^= flip;
    }
}

TEST_F(Crc8H2F, SwitchedOffGivesTheSubstituteOfTheRole) {
    for (const nlohmann::json& vector : vectors("crc8h2f")) {
        if (vector.at("name") != "switched off") {
            continue;
        }
        block.cfg.TxCrcMode = vector.at("TxCrcMode");
        block.cfg.role = vector.at("master").get<bool>() ? 1 : 0;
        const StdoutCapture output;
        for (const Bytes& data : {Bytes{}, Bytes{0x00}, Bytes{1, 2, 3}}) {
            EXPECT_EQ(first(data), hexByte(vector.at("crc"))) << vector;
            EXPECT_EQ(further(data, 0x12), hexByte(vector.at("crc"))) << vector;
        }
        EXPECT_EQ(output.count("\n"), vector.at("errorLine").get<bool>() ? 6 : 0) << vector;
    }
}

TEST_F(Crc8H2F, SubstituteOfAnyNonzeroRoleIsTheMasters) {
    block.cfg.TxCrcMode = 0;
    block.cfg.role = 2;
    EXPECT_EQ(first({1}), 0x00);
}

TEST_F(Crc8H2F, WrongModeIsLoggedOncePerCallWithItsValue) {
    for (const auto& [mode, text] :
         {std::pair(7U, "Wrong configuration TxCrcMode: 0x7 ..."),
          std::pair(2U, "Wrong configuration TxCrcMode: 0x2 ..."),
          std::pair(0xFFFFFFFFU, "Wrong configuration TxCrcMode: 0xffffffff ...")}) {
        block.cfg.TxCrcMode = mode;
        const StdoutCapture output;
        EXPECT_EQ(first({0x55}), 0xFF);
        const std::vector<LogLine> lines = output.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].text, text);
        EXPECT_EQ(lines[0].level, "ERROR");
        EXPECT_EQ(lines[0].function, "Crc_CalculateCRC8H2F");
    }
}

TEST_F(Crc8H2F, FollowsAModeThatTheHostChangesMeanwhile) {
    EXPECT_EQ(first({0x00}), 0xBD);
    ZebEthTSynInterface_SetTxMode(0, 0, 0);
    EXPECT_EQ(first({0x00}), 0xFF);
    ZebEthTSynInterface_SetTxMode(0, 0, 1);
    EXPECT_EQ(first({0x00}), 0xBD);
}

TEST(Crc8H2FAlone, MakesTheInstanceThatIsMissing) {
    DbgTraceLevel = 0;
    static InterfaceDataManager* const earlier =
        std::exchange(InterfaceDataManager::m_pInstance, nullptr);
    const unsigned char byte = 1;
    EXPECT_EQ(Crc_CalculateCRC8H2F(&byte, 1, 0, true), 0xFF);
    EXPECT_NE(InterfaceDataManager::m_pInstance, nullptr);
    EXPECT_NE(InterfaceDataManager::m_pInstance, earlier);
}

}  // namespace
