#include "tools/tsyn/HexText.h"

namespace tsyn {

std::string hexProblem(const std::string& text, std::size_t leastBytes, std::size_t mostBytes) {
    const bool hex = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    const bool whole = text.size() % 2 == 0;
    if (hex && whole && text.size() >= 2 * leastBytes && text.size() <= 2 * mostBytes) {
        return {};
    }
    const std::string most = std::to_string(2 * mostBytes);
    const std::string count =
        leastBytes == mostBytes ? most : std::to_string(2 * leastBytes) + " to " + most;
    return "needs " + count + " hexadecimal digits, two a byte";
}

std::vector<unsigned char> hexBytes(const std::string& text) {
    std::vector<unsigned char> bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(std::stoul(text.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

}  // namespace tsyn
