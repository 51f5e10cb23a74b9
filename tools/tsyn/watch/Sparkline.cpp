#include "tools/tsyn/watch/Sparkline.h"

#include <algorithm>
#include <cmath>

namespace tsyn {
namespace {

constexpr int kLevels = 8;
constexpr const char* kBlocks[kLevels] = {"\u2581", "\u2582", "\u2583", "\u2584",
                                          "\u2585", "\u2586", "\u2587", "\u2588"};
constexpr const char* kCharacters[kLevels] = {"_", ".", "-", "~", "=", "+", "*", "#"};

bool startsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
}

int levelOf(double value, double least, double most) {
    // A steady value is drawn half-way up: it is neither low nor high.
    if (most <= least) {
        return kLevels / 2;
    }
    const double share = (value - least) / (most - least);
    return std::clamp(static_cast<int>(std::floor(share * kLevels)), 0, kLevels - 1);
}

}  // namespace

std::string sparkline(const RecentValues& series, std::size_t columns, bool utf8) {
    const std::size_t shown = std::min(series.size(), columns);
    const auto first = series.end() - static_cast<std::ptrdiff_t>(shown);
    double least = INFINITY;
    double most = -INFINITY;
    for (auto value = first; value != series.end(); ++value) {
        if (*value) {
            least = std::min(least, **value);
            most = std::max(most, **value);
        }
    }
    const char* const* const levels = utf8 ? kBlocks : kCharacters;
    std::string text(columns - shown, ' ');
    for (auto value = first; value != series.end(); ++value) {
        text += *value ? levels[levelOf(**value, least, most)] : " ";
    }
    return text;
}

std::size_t columnsOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCharacter));
}

std::string cutTo(const std::string& text, std::size_t columns) {
    std::size_t taken = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (startsCharacter(text[i]) && ++taken > columns) {
            return text.substr(0, i);
        }
    }
    return text;
}

}  // namespace tsyn
