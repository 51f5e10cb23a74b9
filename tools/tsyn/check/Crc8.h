#pragma once

#include <cstddef>

namespace tsyn {

/** The CRC of the AUTOSAR sub-TLVs over pieces that are added one after the other: polynomial
 *  0x2F, most significant bit first, initial value and final XOR 0xFF.
 *
 *  By division bit by bit, since the library does it with a table: a wrong entry must not hide
 *  itself from the check. */
class Crc8 {
public:
    constexpr Crc8& add(const unsigned char* bytes, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            add(bytes[i]);
        }
        return *this;
    }

    constexpr Crc8& add(unsigned char byte) {
        constexpr unsigned int kPolynomial = 0x2F;
        for (unsigned int mask = 0x80; mask != 0; mask >>= 1) {
            const bool inputBit = (byte & mask) != 0;
            const bool topBit = (remainder_ & 0x80) != 0;
            remainder_ = remainder_ << 1 & 0xFF;
            remainder_ ^= inputBit != topBit ? kPolynomial : 0;
        }
        return *this;
    }

    constexpr unsigned char value() const { return static_cast<unsigned char>(remainder_ ^ 0xFF); }

private:
    unsigned int remainder_ = 0xFF;
};

namespace detail {
inline constexpr unsigned char kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
}
static_assert(Crc8().add(detail::kDigits, 9).value() == 0xDF, "published check value of this CRC");

}  // namespace tsyn
