#pragma once

#include <array>

/** The AUTOSAR CRC-8H2F: polynomial 0x2F, most significant bit first, initial value and final XOR
 *  0xFF. */
namespace crc8h2f {

inline constexpr unsigned char kPolynomial = 0x2F;
inline constexpr unsigned char kInitialValue = 0xFF;
inline constexpr unsigned char kFinalXor = 0xFF;

constexpr std::array<unsigned char, 256> makeTable() {
    std::array<unsigned char, 256> table{};
    for (unsigned int i = 0; i < 256; ++i) {
        unsigned int crc = i;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1) ^ kPolynomial : crc << 1;
        }
        table[i] = static_cast<unsigned char>(crc);
    }
    return table;
}

inline constexpr std::array<unsigned char, 256> kTable = makeTable();

/** CRC over a piece. previous: the CRC of the pieces before it; for the first piece 0, which
 *  stands for the initial value. */
constexpr unsigned char update(unsigned char previous, const unsigned char* data,
                               unsigned int length) {
    unsigned char crc = previous ^ kFinalXor;
    for (unsigned int i = 0; i < length; ++i) {
        crc = kTable[crc ^ data[i]];
    }
    return crc ^ kFinalXor;
}

constexpr unsigned char checkValue() {
    constexpr unsigned char kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    return update(kInitialValue ^ kFinalXor, kDigits, sizeof kDigits);
}

static_assert(kTable[1] == 0x2F && kTable[2] == 0x5E && kTable[3] == 0x71, "table entries");
static_assert(checkValue() == 0xDF, "published check value of this CRC");

}  // namespace crc8h2f
