#include "tools/tsyn/HexText.h"

namespace tsyn {
namespace {

/** Digits alone: without 0x in front and colons between bytes. */
std::string digitsOf(const std::string& text) {
    const bool marked = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
    std::string digits;
    for (std::size_t i = marked ? 2 : 0; i < text.size(); ++i) {
        const bool between = !digits.empty() && digits.size() % 2 == 0 && i + 1 < text.size();
        if (text[i] != ':' || !between || text[i - 1] == ':') {
            digits += text[i];
        }
    }
    return digits;
}

}  // namespace

std::string hexProblem(const std::string& told, std::size_t leastBytes, std::size_t mostBytes) {
    const std::string text = digitsOf(told);
    const bool hex = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    const bool whole = text.size() % 2 == 0;
    if (hex && whole && text.size() >= 2 * leastBytes && text.size() <= 2 * mostBytes) {
        return {};
    }
    const std::string most = std::to_string(2 * mostBytes);
    const std::string count =
        leastBytes == mostBytes ? most : std::to_string(2 * leastBytes) + " to " + most;
    return "needs " + count +
           " hexadecimal digits, two a byte; 0x in front and colons between bytes may be";
}

std::vector<unsigned char> hexBytes(const std::string& told) {
    const std::string text = digitsOf(told);
    std::vector<unsigned char> bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(std::stoul(text.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

}  // namespace tsyn
