#include "wire/Crc8H2F.h"

#include <utility>

#include "tests/autosar/AutosarInstance.h"
#include "tests/support/Hex.h"
#include "tests/support/Seed.h"

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
    ASSERT_EQ("table", vector.at("name"));
    EXPECT_EQ(vector.at("whole"), toHex(crc8h2f::kTable.data(), crc8h2f::kTable.size()));
    EXPECT_EQ(vector.at("first16"), toHex(crc8h2f::kTable.data(), 16));
}

TEST_F(Crc8H2F, OfOnePieceIsAsEveryVectorTells) {
    int checked = 0;
    for (const nlohmann::json& vector : vectors("crc8h2f")) {
        if (vector.at("name") == "first call") {
            EXPECT_EQ(hexByte(vector.at("crc")), first(fromHex(vector.at("data")))) << vector;
            ++checked;
        }
    }
    EXPECT_EQ(11, checked);
}

TEST_F(Crc8H2F, OfTheNineDigitsIsThePublishedCheckValue) {
    EXPECT_EQ(0xDF, first({'1', '2', '3', '4', '5', '6', '7', '8', '9'}));
}

TEST_F(Crc8H2F, OfASingleZeroByteIsBD) {
    EXPECT_EQ(0xBD, first({0x00}));
}

TEST_F(Crc8H2F, GoesOnFromThePreviousPiece) {
    for (const nlohmann::json& vector : vectors("crc8h2f")) {
        if (vector.at("name") == "split 4+5") {
            const unsigned char crc = first(fromHex(vector.at("piece1")));
            EXPECT_EQ(hexByte(vector.at("crc1")), crc);
            EXPECT_EQ(hexByte(vector.at("crc2")), further(fromHex(vector.at("piece2")), crc));
        } else if (vector.at("name") == "empty continuation") {
            EXPECT_EQ(hexByte(vector.at("crc")), further({}, hexByte(vector.at("start"))));
        }
    }
}

TEST_F(Crc8H2F, OfNothingIsZeroForAFirstPieceAndThePreviousOneAfterwards) {
    EXPECT_EQ(0x00, Crc_CalculateCRC8H2F(nullptr, 0, 0x77, true));
    EXPECT_EQ(0x77, Crc_CalculateCRC8H2F(nullptr, 0, 0x77, false));
}

TEST_F(Crc8H2F, IsTheSameForEveryWayToSplitTheData) {
    std::mt19937_64 random = seededGenerator();
    Bytes data(64);
    for (unsigned char& byte : data) {
        byte = static_cast<unsigned char>(random());
    }
    const unsigned char whole = first(data);
    for (auto cut = data.begin(); cut <= data.end(); ++cut) {
        EXPECT_EQ(whole, further({cut, data.end()}, first({data.begin(), cut})))
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
        EXPECT_NE(intact, first(data)) << bit;
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
            EXPECT_EQ(hexByte(vector.at("crc")), first(data)) << vector;
            EXPECT_EQ(hexByte(vector.at("crc")), further(data, 0x12)) << vector;
        }
        EXPECT_EQ(vector.at("errorLine").get<bool>() ? 6 : 0, output.count("\n")) << vector;
    }
}

TEST_F(Crc8H2F, SubstituteOfAnyNonzeroRoleIsTheMasters) {
    block.cfg.TxCrcMode = 0;
    block.cfg.role = 2;
    EXPECT_EQ(0x00, first({1}));
}

TEST_F(Crc8H2F, WrongModeIsLoggedOncePerCallWithItsValue) {
    for (const auto& [mode, text] :
         {std::pair(7U, "Wrong configuration TxCrcMode: 0x7 ..."),
          std::pair(2U, "Wrong configuration TxCrcMode: 0x2 ..."),
          std::pair(0xFFFFFFFFU, "Wrong configuration TxCrcMode: 0xffffffff ...")}) {
        block.cfg.TxCrcMode = mode;
        const StdoutCapture output;
        EXPECT_EQ(0xFF, first({0x55}));
        const std::vector<LogLine> lines = output.lines();
        ASSERT_EQ(1U, lines.size());
        EXPECT_EQ(text, lines[0].text);
        EXPECT_EQ("ERROR", lines[0].level);
        EXPECT_EQ("Crc_CalculateCRC8H2F", lines[0].function);
    }
}

TEST_F(Crc8H2F, FollowsAModeThatTheHostChangesMeanwhile) {
    EXPECT_EQ(0xBD, first({0x00}));
    ZebEthTSynInterface_SetTxMode(0, 0, 0);
    EXPECT_EQ(0xFF, first({0x00}));
    ZebEthTSynInterface_SetTxMode(0, 0, 1);
    EXPECT_EQ(0xBD, first({0x00}));
}

TEST(Crc8H2FAlone, MakesTheInstanceThatIsMissing) {
    DbgTraceLevel = 0;
    static InterfaceDataManager* const earlier =
        std::exchange(InterfaceDataManager::m_pInstance, nullptr);
    const unsigned char byte = 1;
    EXPECT_EQ(0xFF, Crc_CalculateCRC8H2F(&byte, 1, 0, true));
    EXPECT_NE(nullptr, InterfaceDataManager::m_pInstance);
    EXPECT_NE(earlier, InterfaceDataManager::m_pInstance);
}

}  // namespace
