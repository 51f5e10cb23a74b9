#include "tests/support/Hex.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kExtendedSize = 10;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "hexadecimal digits: %s\n", what.c_str());
    std::abort();
}

unsigned char nibble(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned char>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned char>(digit - 'a' + 10);
    }
    fail(std::string("'") + digit + "' is no lower-case hexadecimal digit");
}

}  // namespace

std::vector<unsigned char> fromHex(const std::string& digits) {
    if (digits.size() % 2 != 0) {
        fail("odd number of digits in '" + digits + "'");
    }
    std::vector<unsigned char> bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] =
            static_cast<unsigned char>(nibble(digits[2 * i]) << 4 | nibble(digits[2 * i + 1]));
    }
    return bytes;
}

std::string toHex(const unsigned char* bytes, std::size_t count) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

std::string toHex(const std::vector<unsigned char>& bytes) {
    return toHex(bytes.data(), bytes.size());
}

std::string toX87(long double value) {
    unsigned char bytes[kExtendedSize];
    std::memcpy(bytes, &value, kExtendedSize);
    return toHex(bytes, kExtendedSize);
}
